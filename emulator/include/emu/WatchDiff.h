#ifndef EMU_WATCH_DIFF_H
#define EMU_WATCH_DIFF_H

#include <optional>
#include <string>
#include <vector>

namespace emu {

// One difference between two watches' setups, with what a person needs to find it.
struct WatchDifference {
  std::string item;  // as reports name it: "face PKGID", "photo NAME", "app APPID", "idle clock"
  std::string text;  // the whole line, "ITEM: how it differs"
  // Settings documents: the first line that differs (from 1) and that line on each watch (none
  // past a document's end).
  std::optional<size_t> line = std::nullopt;
  std::optional<std::string> firstLine = std::nullopt, secondLine = std::nullopt;
  // Photo files whose bytes differ: each one's size and the first offset where they part.
  std::optional<size_t> firstSize = std::nullopt, secondSize = std::nullopt,
                        firstDifferingByte = std::nullopt;
};

// Compares the user's setup on two watches: the idle clock, each face's and each preloaded watch
// app's settings, the background photos (name, type and bytes) and the downloaded apps. Each
// difference is one line naming the watch by its directory as given, in a stable order; none
// means the same setup. A photo whose file is missing is a difference, not an error. Returns
// false with a one-line reason when a profile cannot be read.
bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<WatchDifference>& differences,
                 std::string& error);
// The same, each difference as its line.
bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<std::string>& differences,
                 std::string& error);

}  // namespace emu

#endif
