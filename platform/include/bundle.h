/* Bundle: a set of string keys with values, the payload of message-port messages. */
#ifndef __BUNDLE_H__
#define __BUNDLE_H__

#include <tizen_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _bundle_t bundle;

typedef enum {
  BUNDLE_ERROR_NONE = TIZEN_ERROR_NONE,
  BUNDLE_ERROR_OUT_OF_MEMORY = TIZEN_ERROR_OUT_OF_MEMORY,
  BUNDLE_ERROR_INVALID_PARAMETER = TIZEN_ERROR_INVALID_PARAMETER,
  BUNDLE_ERROR_KEY_NOT_AVAILABLE = TIZEN_ERROR_KEY_NOT_AVAILABLE,
  BUNDLE_ERROR_KEY_EXISTS = TIZEN_ERROR_BUNDLE | 0x01,
} bundle_error_e;

/* Returns a new bundle that the caller releases with bundle_free(), or NULL. */
bundle* bundle_create(void);
int bundle_free(bundle* b);
bundle* bundle_dup(bundle* b_from);
/* Fails with BUNDLE_ERROR_KEY_EXISTS when the key is already there. */
int bundle_add_str(bundle* b, const char* key, const char* str);
/* *str points into the bundle: valid until the key is deleted or the bundle freed. */
int bundle_get_str(bundle* b, const char* key, char** str);
int bundle_del(bundle* b, const char* key);
int bundle_get_count(bundle* b);

#ifdef __cplusplus
}
#endif

#endif
