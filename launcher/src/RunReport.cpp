#include "launcher/RunReport.h"

#include <algorithm>

#include "MvText.h"

namespace launcher {

namespace {

const size_t kAreaWidth = 10;

}  // namespace

RunReport::RunReport() : members_(json_object_new()) {}

RunReport::~RunReport() = default;

void RunReport::line(const std::string& area, const std::string& text) {
  std::string shown = area;
  shown.resize(std::max(kAreaWidth, area.size() + 1), ' ');
  lines_.push_back(shown + mvShownText(text));
}

void RunReport::failure(const std::string& area, const std::string& text) {
  line(area, text);
  failures_.push_back(area + ": " + mvShownText(text));
}

void RunReport::setText(const std::string& name, const std::string& bytes) {
  mvJsonSetText(members_.get(), name.c_str(), bytes);
}

void RunReport::set(const std::string& name, JsonNode* node) {
  json_object_set_member(members_.get(), name.c_str(), node);
}

std::string RunReport::json(bool pretty) const {
  g_autoptr(JsonObject) object = json_object_new();
  g_autoptr(GList) names = json_object_get_members(members_.get());
  for (GList* name = names; name; name = name->next) {
    const char* member = static_cast<const char*>(name->data);
    json_object_set_member(object, member,
                           json_node_copy(json_object_get_member(members_.get(), member)));
  }
  JsonArray* failures = json_array_new();
  for (const std::string& failure : failures_)
    json_array_add_string_element(failures, failure.c_str());
  json_object_set_array_member(object, "failures", failures);

  g_autoptr(JsonNode) root = json_node_new(JSON_NODE_OBJECT);
  json_node_set_object(root, object);
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_pretty(generator, pretty);
  json_generator_set_root(generator, root);
  gsize length = 0;
  g_autofree char* text = json_generator_to_data(generator, &length);
  return std::string(text, length);
}

JsonNode* jsonString(const std::string& text) {
  JsonNode* node = json_node_new(JSON_NODE_VALUE);
  json_node_set_string(node, mvShownText(text).c_str());
  return node;
}

JsonNode* jsonInt(gint64 value) {
  JsonNode* node = json_node_new(JSON_NODE_VALUE);
  json_node_set_int(node, value);
  return node;
}

JsonNode* jsonDouble(double value) {
  JsonNode* node = json_node_new(JSON_NODE_VALUE);
  json_node_set_double(node, value);
  return node;
}

JsonNode* jsonBool(bool value) {
  JsonNode* node = json_node_new(JSON_NODE_VALUE);
  json_node_set_boolean(node, value);
  return node;
}

}  // namespace launcher
