#ifndef HOST_WATCH_DIRS_H
#define HOST_WATCH_DIRS_H

#include <string>

namespace host {

// Checks that the directory `relative` (components separated by '/') inside the watch
// `deviceDir` is reached from the watch's root through directories only, no link among them, so
// that what is written there stays on the watch; with `create`, missing ones are made. Each
// component is opened with O_NOFOLLOW | O_DIRECTORY from the one before. False with a one-line
// reason naming the component that is a link or cannot be made.
bool checkWatchDirectory(const std::string& deviceDir,
                         const std::string& relative,
                         bool create,
                         std::string& error);

}  // namespace host

#endif
