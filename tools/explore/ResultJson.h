#ifndef MORVIK_EXPLORE_RESULT_JSON_H
#define MORVIK_EXPLORE_RESULT_JSON_H

#include <json-glib/json-glib.h>

#include <string>

namespace explore {

// Readers of a run's JSON result that take a missing or mistyped member as absent.
std::string member(JsonObject* object, const char* name);
gint64 integer(JsonObject* object, const char* name, gint64 fallback = -1);
double number(JsonObject* object, const char* name, double fallback = -1);
JsonObject* object(JsonObject* object, const char* name);
JsonArray* array(JsonObject* object, const char* name);

template <typename Each>
void forEachObject(JsonArray* list, Each each) {
  for (guint i = 0; list && i < json_array_get_length(list); ++i) {
    JsonNode* element = json_array_get_element(list, i);
    if (JSON_NODE_HOLDS_OBJECT(element))
      each(json_node_get_object(element));
  }
}

}  // namespace explore

#endif
