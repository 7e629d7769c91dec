#ifndef EMU_SAMPLE_WATCH_H
#define EMU_SAMPLE_WATCH_H

#include <string>

#include "MvWatchNames.h"
#include "emu/DeviceProfile.h"

namespace emu {

// Where the watch face service keeps the photos a restore gives it, in the device directory.
extern const char* const kBackgroundDir;

// Makes a new watch in `deviceDir` (created if missing; it must not hold a watch yet). The
// sample has the user's setup: faces, photos, both preloaded watch apps with settings,
// downloaded apps and an idle clock. The blank one has the same platform apps and store
// catalogue but none of the user's setup. Returns false with a one-line reason.
bool createSampleWatch(const std::string& deviceDir, std::string& error);
bool createBlankWatch(const std::string& deviceDir, std::string& error);

// The benchmark's reference watch: 40 faces with 16 KiB settings documents, both preloaded
// watch apps with settings, 10 downloaded apps and 20 x `photoFactor` photos of 512 KiB of bytes
// that do not compress. The same bytes on every run. Its blank counterpart has the same store
// catalogue, so that a restore onto it can install the downloaded apps.
bool createHeavyWatch(const std::string& deviceDir, int photoFactor, std::string& error);
bool createHeavyBlankWatch(const std::string& deviceDir, std::string& error);

}  // namespace emu

#endif
