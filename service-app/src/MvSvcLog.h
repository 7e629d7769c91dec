#ifndef MVSVC_LOG_H
#define MVSVC_LOG_H

#include <assert.h>
#include <dlog.h>

#define MVSVC_LOG_TAG "morvik-service"

// The source file's base name, folded at compile time.
constexpr const char* mvsvcFileBaseName(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/')
      base = p + 1;
  }
  return base;
}

#define MVSVC_FILE_NAME (mvsvcFileBaseName(__FILE__))

// Every line: "file: function(line) > " then the coloured message. Lambdas show "operator()".
#define MVSVC_LOGE(fmt, ...) MVSVC_LOGE_FOR(__func__, fmt, ##__VA_ARGS__)
#define MVSVC_LOGI(fmt, ...) MVSVC_LOGI_FOR(__func__, fmt, ##__VA_ARGS__)

// The same lines, for a shared step that logs on behalf of the member that called it.
#define MVSVC_LOGE_FOR(function, fmt, ...)                                                     \
  dlog_print(DLOG_ERROR, MVSVC_LOG_TAG, "%s: %s(%d) > \033[0;31m* Critical * " fmt "\033[0;m", \
             MVSVC_FILE_NAME, function, __LINE__, ##__VA_ARGS__)
#define MVSVC_LOGI_FOR(function, fmt, ...)                                                        \
  dlog_print(DLOG_INFO, MVSVC_LOG_TAG, "%s: %s(%d) > \033[0;32m" fmt "\033[0;m", MVSVC_FILE_NAME, \
             function, __LINE__, ##__VA_ARGS__)

// A broken precondition: logged, then asserted.
#define WASSERT(expr)                   \
  do {                                  \
    if (!(expr)) {                      \
      MVSVC_LOGE("WASSERT! %s", #expr); \
      assert(expr);                     \
    }                                   \
  } while (0)

#endif
