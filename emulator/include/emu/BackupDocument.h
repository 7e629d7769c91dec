#ifndef EMU_BACKUP_DOCUMENT_H
#define EMU_BACKUP_DOCUMENT_H

#include <string>
#include <vector>

namespace emu {

// A backup document as the emulated cloud and its checks read it: what it would put back on a
// watch. The service's own reader is the one that restores; this one describes and audits.
struct BackupDocument {
  struct Entry {
    std::string pkgId;
    std::string svcId;
    std::string result;  // a settings document, or "downloaded"
  };
  struct Photo {
    std::string fileName;
    std::string bgType;
    std::string data;  // base64
  };

  // The stored text was not UTF-8: its bad bytes read as U+FFFD.
  bool repaired = false;
  std::string mainKey;
  std::string subKey;
  std::vector<Entry> entries;
  std::vector<Photo> photos;

  // Reads `text`. Returns false with json-glib's reason when it is not a JSON object.
  bool read(const std::string& text, std::string& error);

  // Takes in a document restored after this one: its entries and photos replace those of the
  // same name, and its keys those it has.
  void merge(const BackupDocument& later);

  int faces() const;
  int watchApps() const;
  int downloadedApps() const;
  // "3 faces, 2 watch apps, 2 downloaded apps, 2 photos"
  std::string describe() const;
};

}  // namespace emu

#endif
