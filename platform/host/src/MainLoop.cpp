#include "host/MainLoop.h"

#include <Ecore.h>
#include <glib.h>
#include <sys/select.h>

#include <algorithm>
#include <vector>

#include "host/VirtualClock.h"

namespace host {

namespace {

bool g_running = false;

bool earlier(const struct timeval& a, const struct timeval& b) {
  return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_usec < b.tv_usec);
}

// On the simulated clock a wait does not sleep: when nothing is ready, the clock jumps to the
// end of the wait. Only an endless wait with nothing pending (a signal's arrival) really blocks.
int selectOnVirtualTime(int nfds,
                        fd_set* readfds,
                        fd_set* writefds,
                        fd_set* exceptfds,
                        struct timeval* wait) {
  fd_set read = *readfds, write = *writefds, except = *exceptfds;
  struct timeval now = {0, 0};
  const int ready = select(nfds, readfds, writefds, exceptfds, &now);
  if (ready != 0)
    return ready;
  if (!wait) {
    *readfds = read;
    *writefds = write;
    *exceptfds = except;
    return select(nfds, readfds, writefds, exceptfds, nullptr);
  }
  // Ecore rounds a timer that is due within a microsecond down to no wait at all: time must
  // still move on, or the timer never comes due.
  VirtualClock::advance(
      std::max<int64_t>(1, static_cast<int64_t>(wait->tv_sec) * 1000000 + wait->tv_usec));
  return 0;
}

// The nested loops' poll on the simulated clock, likewise.
gint pollOnVirtualTime(GPollFD* fds, guint count, gint timeoutMs) {
  const gint ready = g_poll(fds, count, 0);
  if (ready != 0 || timeoutMs == 0)
    return ready;
  if (timeoutMs < 0)
    return g_poll(fds, count, -1);
  VirtualClock::advance(static_cast<int64_t>(timeoutMs) * 1000);
  return 0;
}

// Ecore's select with GLib's default context folded in: GLib's descriptors join the sets, its
// timeout bounds the wait, and its ready sources are dispatched before Ecore looks at its own.
int selectWithGlib(int nfds,
                   fd_set* readfds,
                   fd_set* writefds,
                   fd_set* exceptfds,
                   struct timeval* timeout) {
  GMainContext* context = g_main_context_default();
  if (!g_main_context_acquire(context))
    return select(nfds, readfds, writefds, exceptfds, timeout);

  gint maxPriority = 0;
  g_main_context_prepare(context, &maxPriority);
  std::vector<GPollFD> fds(8);
  gint glibTimeoutMs = -1;
  gint count;
  while ((count = g_main_context_query(context, maxPriority, &glibTimeoutMs, fds.data(),
                                       static_cast<gint>(fds.size()))) >
         static_cast<gint>(fds.size())) {
    fds.resize(count);
  }

  int maxFd = nfds;
  for (gint i = 0; i < count; ++i) {
    const GPollFD& fd = fds[i];
    if (fd.events & G_IO_IN)
      FD_SET(fd.fd, readfds);
    if (fd.events & G_IO_OUT)
      FD_SET(fd.fd, writefds);
    if (fd.events & (G_IO_PRI | G_IO_ERR | G_IO_HUP))
      FD_SET(fd.fd, exceptfds);
    if (fd.fd + 1 > maxFd)
      maxFd = fd.fd + 1;
  }

  struct timeval glibTimeout;
  struct timeval* wait = timeout;
  if (glibTimeoutMs >= 0) {
    glibTimeout.tv_sec = glibTimeoutMs / 1000;
    glibTimeout.tv_usec = (glibTimeoutMs % 1000) * 1000;
    if (!timeout || earlier(glibTimeout, *timeout))
      wait = &glibTimeout;
  }

  int ready = VirtualClock::enabled()
                  ? selectOnVirtualTime(maxFd, readfds, writefds, exceptfds, wait)
                  : select(maxFd, readfds, writefds, exceptfds, wait);

  // GLib's descriptors are taken out of the sets again: Ecore only looks for its own.
  for (gint i = 0; i < count; ++i) {
    GPollFD& fd = fds[i];
    fd.revents = 0;
    if (ready > 0) {
      if (FD_ISSET(fd.fd, readfds))
        fd.revents |= G_IO_IN;
      if (FD_ISSET(fd.fd, writefds))
        fd.revents |= G_IO_OUT;
      if (FD_ISSET(fd.fd, exceptfds))
        fd.revents |= G_IO_PRI;
    }
    FD_CLR(fd.fd, readfds);
    FD_CLR(fd.fd, writefds);
    FD_CLR(fd.fd, exceptfds);
  }

  if (g_main_context_check(context, maxPriority, fds.data(), count))
    g_main_context_dispatch(context);
  g_main_context_release(context);

  if (ready <= 0)
    return ready;
  int ecoreReady = 0;
  for (int fd = 0; fd < nfds; ++fd) {
    if (FD_ISSET(fd, readfds) || FD_ISSET(fd, writefds) || FD_ISSET(fd, exceptfds))
      ++ecoreReady;
  }
  return ecoreReady;
}

}  // namespace

MainLoop::MainLoop() {
  // Without this Ecore probes the system D-Bus and complains when there is none.
  ecore_app_no_system_modules();
  ecore_init();
  ecore_main_loop_select_func_set(selectWithGlib);
  if (VirtualClock::enabled())
    g_main_context_set_poll_func(g_main_context_default(), pollOnVirtualTime);
}

MainLoop::~MainLoop() {
  g_main_context_set_poll_func(g_main_context_default(), nullptr);
  ecore_shutdown();
}

void MainLoop::run() {
  g_running = true;
  ecore_main_loop_begin();
  g_running = false;
}

void MainLoop::quit() {
  if (g_running)
    ecore_main_loop_quit();
}

bool MainLoop::isRunning() {
  return g_running;
}

}  // namespace host
