/* The vendor's cloud backup library (libtalvoro-cloud-svc): the backup and restore exchanges
 * between an app and the vendor's backup app, the record lists and records that pass between
 * them, and the record files that carry the records. */
#ifndef __TALVORO_CLOUD_H__
#define __TALVORO_CLOUD_H__

#include <stdbool.h>
#include <tizen_error.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque. A list owns the records added to it and frees them with itself. */
typedef struct talvoro_cloud_list_s* talvoro_cloud_list_h;
/* Opaque. A record holds copies of the key, date and value it is given. */
typedef struct talvoro_cloud_record_s* talvoro_cloud_record_h;

typedef enum {
  TALVORO_CLOUD_ERROR_NONE = TIZEN_ERROR_NONE,
  TALVORO_CLOUD_ERROR_INVALID_PARAMETER = TIZEN_ERROR_INVALID_PARAMETER,
  TALVORO_CLOUD_ERROR_OUT_OF_MEMORY = TIZEN_ERROR_OUT_OF_MEMORY,
  TALVORO_CLOUD_ERROR_IO_ERROR = TIZEN_ERROR_IO_ERROR,
  TALVORO_CLOUD_ERROR_NO_DATA = TIZEN_ERROR_NO_DATA,
  TALVORO_CLOUD_ERROR_NOT_INITIALIZED = -0x01A00001,
  TALVORO_CLOUD_ERROR_INVALID_STATE = -0x01A00002,
  TALVORO_CLOUD_ERROR_FILE_CORRUPT = -0x01A00003,
} talvoro_cloud_error_e;

/* The backup app asks for a preparation, the keys and dates, or the restoration path. */
typedef void (*talvoro_cloud_request_cb)(void* user_data);
/* The records to fill with their values: `list` is a talvoro_cloud_list_h (possibly NULL) that
 * the callee owns and destroys. */
typedef void (*talvoro_cloud_backup_record_cb)(void* list, void* user_data);
/* The restored records are in the record file at `path`, which lives for the call. */
typedef void (*talvoro_cloud_restoration_cb)(const char* path, void* user_data);
/* The end of the exchange, with its overall result. */
typedef void (*talvoro_cloud_completed_cb)(bool success, void* user_data);

/* Life cycle. Deinitialising forgets every registered callback; whether initialize and
 * deinitialize calls nest, or one deinitialize releases the library for every user, is not
 * documented. */
int talvoro_cloud_initialize(void);
int talvoro_cloud_deinitialize(void);

/* Backup exchange. Whether a registration while another user's exchange of the same kind is
 * registered replaces it or is refused is not documented; the same holds for the restore
 * exchange. */
int talvoro_cloud_backup_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                   void* user_data);
int talvoro_cloud_backup_record_set_sending_keys_and_dates_cb(talvoro_cloud_request_cb callback,
                                                              void* user_data);
int talvoro_cloud_backup_record_set_backup_cb(talvoro_cloud_backup_record_cb callback,
                                              void* user_data);
int talvoro_cloud_backup_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                 void* user_data);
int talvoro_cloud_backup_record_send_preparation_completed_response(bool success);
/* The library copies the records; `list` stays the caller's. */
int talvoro_cloud_backup_record_send_keys_and_dates(talvoro_cloud_list_h list, bool success);
/* `path` may be NULL when `success` is false. */
int talvoro_cloud_backup_record_send_backup_path(const char* path, bool success);

/* Restore exchange. */
int talvoro_cloud_restore_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                    void* user_data);
int talvoro_cloud_restore_record_set_sending_restoration_path_cb(talvoro_cloud_request_cb callback,
                                                                 void* user_data);
int talvoro_cloud_restore_record_set_restoration_cb(talvoro_cloud_restoration_cb callback,
                                                    void* user_data);
int talvoro_cloud_restore_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                  void* user_data);
int talvoro_cloud_restore_record_send_preparation_completed_response(bool success);
int talvoro_cloud_restore_record_send_restoration_path(const char* path, bool success);
/* The library takes `list` (which may be NULL) in every case, error or not. */
int talvoro_cloud_restore_record_send_record_list(talvoro_cloud_list_h list, bool success);

/* Record lists, with a cursor over their records. Moving past the last record succeeds once
 * and leaves the cursor at the end, where there is no current record. */
int talvoro_cloud_list_create(talvoro_cloud_list_h* list);
int talvoro_cloud_list_destroy(talvoro_cloud_list_h list);
/* On success the list owns `record`; on failure it stays the caller's. */
int talvoro_cloud_list_add(talvoro_cloud_list_h list, talvoro_cloud_record_h record);
int talvoro_cloud_list_get_record_count(talvoro_cloud_list_h list, int* count);
int talvoro_cloud_list_move_to_first(talvoro_cloud_list_h list);
int talvoro_cloud_list_move_to_next(talvoro_cloud_list_h list);
/* The record stays the list's. */
int talvoro_cloud_list_get_current_record(talvoro_cloud_list_h list,
                                          talvoro_cloud_record_h* record);

/* Records. Only a record that is in no list may be destroyed. The getters lend the record's
 * own string, NULL when the field was never set. */
int talvoro_cloud_record_create(talvoro_cloud_record_h* record);
int talvoro_cloud_record_destroy(talvoro_cloud_record_h record);
int talvoro_cloud_record_set_key(talvoro_cloud_record_h record, const char* key);
int talvoro_cloud_record_set_date(talvoro_cloud_record_h record, const char* date);
int talvoro_cloud_record_set_value(talvoro_cloud_record_h record, const char* value);
int talvoro_cloud_record_get_key(talvoro_cloud_record_h record, const char** key);
int talvoro_cloud_record_get_date(talvoro_cloud_record_h record, const char** date);
int talvoro_cloud_record_get_value(talvoro_cloud_record_h record, const char** value);

/* Record files. Writing replaces the file at `path` whole or not at all; reading refuses a
 * damaged file with TALVORO_CLOUD_ERROR_FILE_CORRUPT. A list read from a file is lent to the
 * caller: it goes back with talvoro_cloud_restore_record_send_record_list() or
 * talvoro_cloud_list_destroy(), and the last talvoro_cloud_deinitialize() frees it otherwise. */
int talvoro_cloud_file_create_file(talvoro_cloud_list_h list, const char* path);
int talvoro_cloud_file_create_record_list(const char* path, talvoro_cloud_list_h* list);

#ifdef __cplusplus
}
#endif

#endif
