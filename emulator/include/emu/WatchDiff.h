#ifndef EMU_WATCH_DIFF_H
#define EMU_WATCH_DIFF_H

#include <string>
#include <vector>

namespace emu {

// Compares the user's setup on two watches: the idle clock, each face's and each preloaded watch
// app's settings, the background photos (name, type and bytes) and the downloaded apps. Each
// difference is one line naming the watch by its directory as given, in a stable order; none
// means the same setup. A photo whose file is missing is a difference, not an error. Returns
// false with a one-line reason when a profile cannot be read.
bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<std::string>& differences,
                 std::string& error);

}  // namespace emu

#endif
