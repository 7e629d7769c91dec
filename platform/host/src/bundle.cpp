// The platform's bundle API on the host.
#include <bundle.h>

#include <new>

#include "host/Bundle.h"

namespace host {

MvBundlePtr makeBundle(const KeyValues& entries) {
  MvBundlePtr b(bundle_create());
  b->entries.assign(entries.begin(), entries.end());
  return b;
}

}  // namespace host

extern "C" {

bundle* bundle_create(void) {
  return new (std::nothrow) _bundle_t();
}

int bundle_free(bundle* b) {
  if (!b)
    return BUNDLE_ERROR_INVALID_PARAMETER;
  delete b;
  return BUNDLE_ERROR_NONE;
}

bundle* bundle_dup(bundle* b_from) {
  if (!b_from)
    return nullptr;
  return new (std::nothrow) _bundle_t(*b_from);
}

int bundle_add_str(bundle* b, const char* key, const char* str) {
  if (!b || !key || !str || key[0] == '\0')
    return BUNDLE_ERROR_INVALID_PARAMETER;
  for (const auto& entry : b->entries) {
    if (entry.first == key)
      return BUNDLE_ERROR_KEY_EXISTS;
  }
  b->entries.emplace_back(key, str);
  return BUNDLE_ERROR_NONE;
}

int bundle_get_str(bundle* b, const char* key, char** str) {
  if (!b || !key || !str)
    return BUNDLE_ERROR_INVALID_PARAMETER;
  for (auto& entry : b->entries) {
    if (entry.first == key) {
      *str = &entry.second[0];
      return BUNDLE_ERROR_NONE;
    }
  }
  return BUNDLE_ERROR_KEY_NOT_AVAILABLE;
}

int bundle_del(bundle* b, const char* key) {
  if (!b || !key)
    return BUNDLE_ERROR_INVALID_PARAMETER;
  for (auto it = b->entries.begin(); it != b->entries.end(); ++it) {
    if (it->first == key) {
      b->entries.erase(it);
      return BUNDLE_ERROR_NONE;
    }
  }
  return BUNDLE_ERROR_KEY_NOT_AVAILABLE;
}

int bundle_get_count(bundle* b) {
  return b ? static_cast<int>(b->entries.size()) : 0;
}

}  // extern "C"
