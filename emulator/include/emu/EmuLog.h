#ifndef EMU_EMU_LOG_H
#define EMU_EMU_LOG_H

#include "host/HostLog.h"

namespace emu {

// The emulated apps' tags in the device's log; they log through host::logInfo() and its kin.
inline constexpr char kLogTagWatchface[] = "emu-watchface";
inline constexpr char kLogTagStore[] = "emu-store";
inline constexpr char kLogTagWatchApp[] = "emu-watchapp";
inline constexpr char kLogTagCloud[] = "emu-cloud";

}  // namespace emu

#endif
