#ifndef EMU_RUN_JOURNAL_H
#define EMU_RUN_JOURNAL_H

#include <stddef.h>

#include <string>

#include "MvHandles.h"
#include "emu/DeviceProfile.h"

namespace emu {

// What a run applies to a watch (configuration written, apps installed, settings and photos
// received), appended to DEVICE/run.journal as it is applied, so that a run that dies before it
// saves the profile loses nothing: DeviceProfile::load takes a journal in, and a save that
// holds it removes it. One line per change, its fields in base64: a line cut short by a kill
// is no change. Main loop thread only.
class RunJournal {
 public:
  static const char* const kFileName;

  // What a journal holds, by kind.
  struct Contents {
    size_t config = 0;
    size_t packages = 0;
    size_t faces = 0;
    size_t photos = 0;
    size_t watchApps = 0;
    size_t changes() const { return config + packages + faces + photos + watchApps; }
    // "2 configuration values, 1 app, 3 settings documents, 20 photos"
    std::string describe() const;
  };

  explicit RunJournal(std::string deviceDir) : deviceDir_(std::move(deviceDir)) {}
  ~RunJournal();
  RunJournal(const RunJournal&) = delete;
  RunJournal& operator=(const RunJournal&) = delete;

  void config(const std::string& key, const std::string& value);
  void package(const host::PackageInfo& info);
  void face(const FaceEntry& face);
  void photo(const BackgroundImage& image);
  void watchApp(const std::string& appId, const std::string& resultXml);

  // False with a one-line reason when a change could not be journaled.
  bool failed(std::string& reason) const;

  // Applies the journal in `deviceDir`, if any, to `profile` in the order it was written;
  // `contents` (when given) counts what it held. False with a one-line reason when it cannot be
  // read.
  static bool replay(const std::string& deviceDir,
                     DeviceProfile& profile,
                     std::string& error,
                     Contents* contents = nullptr);
  static bool exists(const std::string& deviceDir);
  // After a save that holds what the journal did.
  static void remove(const std::string& deviceDir);

 private:
  void append(const char* kind, std::initializer_list<std::string> fields);

  std::string deviceDir_;
  MvFd fd_;
  std::string error_;
};

}  // namespace emu

#endif
