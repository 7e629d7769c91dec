#include "host/Leftovers.h"

// Ecore's timers are objects of its main loop; their class is declared for beta users only.
#define EFL_BETA_API_SUPPORT
#include <Ecore.h>
#include <glib.h>

#include "CloudLibraryState.h"
#include "MvHandles.h"
#include "host/Platform.h"

namespace host {

namespace {

void findSources(std::vector<Leftover>& found) {
  GMainContext* context = g_main_context_default();
  // GLib numbers a context's sources one after the other: a new one shows how far to look.
  const guint last = g_source_attach(MvGSourcePtr(g_idle_source_new()).get(), context);
  for (guint id = 1; id < last; ++id) {
    GSource* source = g_main_context_find_source_by_id(context, id);
    if (!source || g_source_is_destroyed(source))
      continue;
    const char* name = g_source_get_name(source);
    if (name && g_str_has_prefix(name, kHostSourcePrefix))
      continue;
    found.push_back(
        {"GLib source", std::to_string(id) + (name ? std::string(" ") + name : ""), false});
  }
}

void findEcoreTimers(std::vector<Leftover>& found) {
  MvEinaIteratorPtr children(efl_children_iterator_new(efl_main_loop_get()));
  Eo* child = nullptr;
  int timers = 0;
  EINA_ITERATOR_FOREACH(children.get(), child) {
    if (efl_isa(child, EFL_LOOP_TIMER_CLASS))
      ++timers;
  }
  for (int i = 0; i < timers; ++i)
    found.push_back({"Ecore timer", std::to_string(i + 1), false});
}

void findCloudCallbacks(std::vector<Leftover>& found) {
  const cloud::Library& library = cloud::library();
  auto each = [&](const char* exchange, const char* slot, bool registered) {
    if (registered)
      found.push_back({"cloud callback", std::string(exchange) + " " + slot, false});
  };
  for (const auto* exchange : {&library.backup, &library.restore}) {
    const char* kind = exchange == &library.backup ? "backup" : "restore";
    each(kind, "preparation", exchange->preparation.callback != nullptr);
    each(kind, exchange == &library.backup ? "keys and dates" : "restoration path",
         exchange->request.callback != nullptr);
    each(kind, "records", exchange->backupRecords.callback != nullptr);
    each(kind, "restoration", exchange->restoration.callback != nullptr);
    each(kind, "completion", exchange->completed.callback != nullptr);
  }
  if (library.initCount > 0)
    found.push_back(
        {"cloud library",
         "initialised (" + std::to_string(library.initCount) + " deinitialise calls missing)",
         false});
}

}  // namespace

std::vector<Leftover> findLeftovers(Platform& platform) {
  std::vector<Leftover> found;
  for (const std::string& port : platform.ports().names())
    found.push_back({"message port", port, false});
  findSources(found);
  findEcoreTimers(found);
  findCloudCallbacks(found);
  for (const std::string& peer : platform.awaitedReplies())
    found.push_back({"launch request", "to " + peer + ", its reply still due", true});
  return found;
}

}  // namespace host
