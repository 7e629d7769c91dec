#ifndef EMU_DIRECTORY_KIND_H
#define EMU_DIRECTORY_KIND_H

#include <string>

namespace emu {

// What a directory given on a command line holds. A watch has its device.json; a cloud has none
// and holds a backup set (or one being written); an empty directory may become either. Anything
// else, /tmp for one, is neither, and no tool writes a set or a watch into it.
enum class DirectoryKind { kMissing, kNotADirectory, kEmpty, kWatch, kCloud, kOther };

DirectoryKind classifyDirectory(const std::string& dir);

// One-line refusals, worded alike by every tool. A watch must exist.
bool requireWatch(const std::string& dir, std::string& error);
// A missing cloud passes only with `mayBeMissing` (a backup makes it).
bool requireCloud(const std::string& dir, bool mayBeMissing, std::string& error);

}  // namespace emu

#endif
