#ifndef EMU_BACKUP_DOCUMENT_H
#define EMU_BACKUP_DOCUMENT_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace emu {

// A backup document as the emulated cloud and its checks read it: what it would put back on a
// watch. The service's own reader is the one that restores; this one describes and audits, so
// it keeps of each photo only what tells its bytes apart.
struct BackupDocument {
  struct Entry {
    std::string pkgId;
    std::string svcId;
    std::string result;  // a settings document, or "downloaded"
  };
  struct Photo {
    std::string fileName;
    std::string bgType;
    bool noData = true;    // "data" is missing or empty
    size_t dataBytes = 0;  // the bytes "data" decodes to
    uint32_t dataCrc = 0;  // and their CRC-32, as host::valueCrc gives it
  };

  // The stored text was not UTF-8: its bad bytes read as U+FFFD.
  bool repaired = false;
  std::string mainKey;
  std::string subKey;
  std::vector<Entry> entries;
  std::vector<Photo> photos;
  // Why the service could not use the document as a watch's setup ("watch_items is not a
  // list", "it holds no setup"); empty when it could.
  std::string unusable;

  // Quick: one strict pass over the text, and json-glib's tree only for what that pass does not
  // take; JsonGlib: always the tree. Both read every document the same.
  enum class Reader { kQuick, kJsonGlib };
  // Reads `text`, releasing it once read. Returns false with a one-line reason when it is no
  // JSON object or must not reach json-glib.
  bool read(std::string text, std::string& error, Reader reader = Reader::kQuick);

  // Takes in a document restored after this one: its entries and photos replace those of the
  // same name, and its keys those it has. Linear in the later document's size.
  void merge(const BackupDocument& later);

  int faces() const;
  int watchApps() const;
  int downloadedApps() const;
  // "3 faces, 2 watch apps, 2 downloaded apps, 2 photos"
  std::string describe() const;

 private:
  // Where each entry (by service and package) and photo (by file name) is held.
  std::unordered_map<std::string, size_t> entryAt_;
  std::unordered_map<std::string, size_t> photoAt_;
};

// Whether `bytes` are what `photo` carries.
bool photoHolds(const BackupDocument::Photo& photo, const std::string& bytes);

}  // namespace emu

#endif
