#ifndef EMU_CLOUD_STORE_H
#define EMU_CLOUD_STORE_H

#include <functional>
#include <string>
#include <vector>

#include "host/AtomicFile.h"
#include "host/RecordFile.h"

namespace emu {

// The vendor's cloud on disk. Each backup set is one record file CLOUD/set-<ID>.dat, the ID
// zero-padded to six digits and written no other way; IDs only grow, up to kMaxSetId: a new set
// gets the highest ID plus one. Other names in the directory are not sets. A set is written
// under a temporary name, locked while it is written, and linked into place, so a reader sees
// it whole or not at all.
class CloudStore {
 public:
  // Eighteen digits: every ID up to it has a name the listing reads.
  static constexpr unsigned long long kMaxSetId = 999999999999999999ull;

  explicit CloudStore(std::string dir) : dir_(std::move(dir)) {}

  const std::string& dir() const { return dir_; }
  std::string setPath(unsigned long long id) const;

  // The IDs of the sets, oldest first. False with a one-line reason when the directory
  // cannot be read. Names like a set's that are not an ID's own name ("set-1.dat",
  // "set-0000001.dat", an ID past kMaxSetId) are no sets; `ignored` gets them when given.
  bool list(std::vector<unsigned long long>& ids,
            std::string& error,
            std::vector<std::string>* ignored = nullptr) const;
  bool read(unsigned long long id,
            std::vector<host::CloudRecord>& records,
            std::string& error) const;
  // Checks the set as read() does, keeping only an outline of its records.
  bool outline(unsigned long long id,
               std::vector<host::RecordOutline>& records,
               std::string& error) const;
  // Stores `records` as a new set and returns its ID in `id`. Fails, with the reason, when the
  // highest set's ID cannot grow.
  bool add(const std::vector<host::CloudRecord>& records,
           unsigned long long& id,
           std::string& error);
  // Deletes set `id`. Its ID is never given again: an empty "set-<ID>.deleted" keeps it.
  bool remove(unsigned long long id, std::string& error);
  // Stores the record file at `path`, which the caller has read and checked: a hard link to it
  // where the file systems allow, else a copy.
  bool addCopyOf(const std::string& path, unsigned long long& id, std::string& error);
  // Removes the temporary files of writers that died (each store does this first); returns
  // their names.
  std::vector<std::string> removeStaleIncoming();

 private:
  // Makes `incoming` a complete temporary file named after `pattern`, or fails with a reason.
  using MakeIncoming = std::function<
      bool(host::LockedTempFile& incoming, const std::string& pattern, std::string& reason)>;

  // The highest ID a deleted set had, or 0.
  unsigned long long highestDeleted() const;
  // Makes a new temporary file with `make` and links it under the next free ID.
  bool store(const MakeIncoming& make, unsigned long long& id, std::string& error);

  std::string dir_;
};

}  // namespace emu

#endif
