// The names the service and the apps around it on the watch agree on. The service uses them as a
// client, the emulated watch as the other side: one definition, so that the two cannot drift.
// String literals, so that a test can build a name from one.
#ifndef MV_WATCH_NAMES_H
#define MV_WATCH_NAMES_H

// Apps.
#define MV_WATCHFACE_SERVICE_APP_ID "com.talvoro.watchface-service"
#define MV_WATCHFACE_APP_ID "com.talvoro.watchface"
#define MV_SERVICE_APP_ID "com.talvoro.morvik.service"
#define MV_STORE_APP_ID "com.talvoro.vendarosvc"

// The cloud backup service's launch request operations.
#define MV_OPERATION_PREFIX "http://talvoro.com"
#define MV_OPERATION_BACKUP MV_OPERATION_PREFIX "/appcontrol/operation/talvoro_cloud/backup"
#define MV_OPERATION_RESTORE MV_OPERATION_PREFIX "/appcontrol/operation/talvoro_cloud/restore"
#define MV_OPERATION_GET_BACKUP_INFO \
  MV_OPERATION_PREFIX "/appcontrol/operation/talvoro_cloud/get_backup_info"

// Trusted message ports: the service's, and the watch face service's.
#define MV_SERVICE_PORT "morvik-service::localport"
#define MV_WATCHFACE_SERVICE_PORT "watchface-service::localport"

// Configuration keys: the idle clock, and the watch face application's current face.
#define MV_IDLE_CLOCK_KEY "db/pel/clocks_set_idle"
#define MV_WATCHFACE_NAME_KEY "file/private/com.talvoro.watchface/watchface_name"

// The key of the one cloud record a backup holds.
#define MV_RECORD_KEY "key"

#endif
