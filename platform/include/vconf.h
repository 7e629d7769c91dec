/* vconf: the platform's key-value configuration store. */
#ifndef __VCONF_H__
#define __VCONF_H__

#ifdef __cplusplus
extern "C" {
#endif

#define VCONF_OK 0
#define VCONF_ERROR -1

/* Returns a copy the caller frees with free(), or NULL when the key has no string value. */
char* vconf_get_str(const char* in_key);
/* A string value holds at most 4 KiB. */
int vconf_set_str(const char* in_key, const char* strval);

#ifdef __cplusplus
}
#endif

#endif
