#include "ResultJson.h"

namespace explore {

namespace {

JsonNode* valueOf(JsonObject* object, const char* name, GType type) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  return node && JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == type ? node
                                                                                       : nullptr;
}

}  // namespace

std::string member(JsonObject* object, const char* name) {
  JsonNode* node = valueOf(object, name, G_TYPE_STRING);
  return node ? json_node_get_string(node) : std::string();
}

gint64 integer(JsonObject* object, const char* name, gint64 fallback) {
  JsonNode* node = valueOf(object, name, G_TYPE_INT64);
  return node ? json_node_get_int(node) : fallback;
}

double number(JsonObject* object, const char* name, double fallback) {
  if (JsonNode* node = valueOf(object, name, G_TYPE_DOUBLE))
    return json_node_get_double(node);
  if (JsonNode* node = valueOf(object, name, G_TYPE_INT64))
    return static_cast<double>(json_node_get_int(node));
  return fallback;
}

JsonObject* object(JsonObject* object, const char* name) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  return node && JSON_NODE_HOLDS_OBJECT(node) ? json_node_get_object(node) : nullptr;
}

JsonArray* array(JsonObject* object, const char* name) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  return node && JSON_NODE_HOLDS_ARRAY(node) ? json_node_get_array(node) : nullptr;
}

}  // namespace explore
