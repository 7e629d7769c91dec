#ifndef EMU_CLOUD_STORE_H
#define EMU_CLOUD_STORE_H

#include <string>
#include <vector>

#include "host/RecordFile.h"

namespace emu {

// The vendor's cloud on disk. Each backup set is one record file CLOUD/set-<ID>.dat (ID zero
// padded to six digits); IDs only grow: a new set gets the highest ID plus one. Other names in
// the directory are not sets. A set is written under a temporary name and linked into place,
// so a reader sees it whole or not at all.
class CloudStore {
 public:
  explicit CloudStore(std::string dir) : dir_(std::move(dir)) {}

  const std::string& dir() const { return dir_; }
  std::string setPath(unsigned long long id) const;

  // The IDs of the sets, oldest first. False with a one-line reason when the directory
  // cannot be read.
  bool list(std::vector<unsigned long long>& ids, std::string& error) const;
  bool read(unsigned long long id,
            std::vector<host::CloudRecord>& records,
            std::string& error) const;
  // Checks the set as read() does, keeping only an outline of its records.
  bool outline(unsigned long long id,
               std::vector<host::RecordOutline>& records,
               std::string& error) const;
  // Stores `records` as a new set and returns its ID in `id`.
  bool add(const std::vector<host::CloudRecord>& records,
           unsigned long long& id,
           std::string& error);
  // Stores a copy of the record file at `path`, which the caller has read and checked.
  bool addCopyOf(const std::string& path, unsigned long long& id, std::string& error);

 private:
  // Gives the written file `incoming` the next free ID, or removes it.
  bool claim(const std::string& incoming, unsigned long long& id, std::string& error);
  std::string incomingPath(const void* writer) const;

  std::string dir_;
};

}  // namespace emu

#endif
