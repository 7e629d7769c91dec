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

// Where a line is logged from. A step shared by several members takes its caller's, so that
// each line names the member that took the step, as if that member had logged it itself.
struct MvSvcSourceLocation {
  const char* file;
  const char* function;
  int line;
};

// Here, as the prefix shows it: lambdas are "operator()".
#define MVSVC_HERE (MvSvcSourceLocation{mvsvcFileBaseName(__FILE__), __func__, __LINE__})

// Every line: "file: function(line) > " then the coloured message.
#define MVSVC_LOGE(fmt, ...) MVSVC_LOGE_AT(MVSVC_HERE, fmt, ##__VA_ARGS__)
#define MVSVC_LOGI(fmt, ...) MVSVC_LOGI_AT(MVSVC_HERE, fmt, ##__VA_ARGS__)

#define MVSVC_LOGE_AT(where, fmt, ...)                                                         \
  dlog_print(DLOG_ERROR, MVSVC_LOG_TAG, "%s: %s(%d) > \033[0;31m* Critical * " fmt "\033[0;m", \
             (where).file, (where).function, (where).line, ##__VA_ARGS__)
#define MVSVC_LOGI_AT(where, fmt, ...)                                                         \
  dlog_print(DLOG_INFO, MVSVC_LOG_TAG, "%s: %s(%d) > \033[0;32m" fmt "\033[0;m", (where).file, \
             (where).function, (where).line, ##__VA_ARGS__)

// A broken precondition: logged, then asserted.
#define WASSERT(expr)                   \
  do {                                  \
    if (!(expr)) {                      \
      MVSVC_LOGE("WASSERT! %s", #expr); \
      assert(expr);                     \
    }                                   \
  } while (0)

#endif
