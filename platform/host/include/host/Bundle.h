#ifndef HOST_BUNDLE_H
#define HOST_BUNDLE_H

#include <bundle.h>

#include <list>
#include <string>
#include <utility>

#include "MvHandles.h"
#include "host/BoundaryRecord.h"

// The host's bundle: string entries in insertion order. A list, as on the device a value stays
// where it is until its key is deleted: bundle_get_str hands out pointers into it.
struct _bundle_t {
  std::list<std::pair<std::string, std::string>> entries;

  host::KeyValues keyValues() const { return host::KeyValues(entries.begin(), entries.end()); }
};

namespace host {

// A new bundle holding `entries`, owned by the caller.
MvBundlePtr makeBundle(const KeyValues& entries);

}  // namespace host

#endif
