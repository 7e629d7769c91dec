#ifndef HOST_BUNDLE_H
#define HOST_BUNDLE_H

#include <bundle.h>

#include <memory>

#include "host/BoundaryRecord.h"

// The host's bundle: string entries in insertion order.
struct _bundle_t {
  host::KeyValues entries;
};

namespace host {

struct BundleDeleter {
  void operator()(bundle* b) const { bundle_free(b); }
};
using BundlePtr = std::unique_ptr<bundle, BundleDeleter>;

// A new bundle holding `entries`, owned by the caller.
BundlePtr makeBundle(const KeyValues& entries);

}  // namespace host

#endif
