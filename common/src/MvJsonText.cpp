#include "host/JsonText.h"

namespace host {

namespace {

std::string exactName(const char* member) {
  return std::string(member) + "_base64";
}

}  // namespace

bool isUtf8(const std::string& bytes) {
  return g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr);
}

std::string repairedUtf8(const std::string& bytes) {
  if (isUtf8(bytes))
    return bytes;
  g_autofree gchar* repaired = g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size()));
  return repaired;
}

std::string base64Of(const std::string& bytes) {
  g_autofree gchar* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

void addTextMember(JsonBuilder* builder, const char* member, const std::string& bytes) {
  json_builder_set_member_name(builder, member);
  json_builder_add_string_value(builder, repairedUtf8(bytes).c_str());
  if (isUtf8(bytes))
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_add_string_value(builder, base64Of(bytes).c_str());
}

void addTextMap(JsonBuilder* builder,
                const char* member,
                const std::map<std::string, std::string>& values) {
  json_builder_set_member_name(builder, member);
  json_builder_begin_object(builder);
  bool allText = true;
  for (const auto& entry : values) {
    json_builder_set_member_name(builder, repairedUtf8(entry.first).c_str());
    json_builder_add_string_value(builder, repairedUtf8(entry.second).c_str());
    allText = allText && isUtf8(entry.second);
  }
  json_builder_end_object(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_begin_object(builder);
  for (const auto& entry : values) {
    if (isUtf8(entry.second))
      continue;
    json_builder_set_member_name(builder, repairedUtf8(entry.first).c_str());
    json_builder_add_string_value(builder, base64Of(entry.second).c_str());
  }
  json_builder_end_object(builder);
}

void addTextArray(JsonBuilder* builder,
                  const char* member,
                  const std::vector<std::string>& values) {
  json_builder_set_member_name(builder, member);
  json_builder_begin_array(builder);
  bool allText = true;
  for (const std::string& value : values) {
    json_builder_add_string_value(builder, repairedUtf8(value).c_str());
    allText = allText && isUtf8(value);
  }
  json_builder_end_array(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_begin_array(builder);
  for (const std::string& value : values) {
    if (isUtf8(value))
      json_builder_add_null_value(builder);
    else
      json_builder_add_string_value(builder, base64Of(value).c_str());
  }
  json_builder_end_array(builder);
}

void setTextMember(JsonObject* object, const char* member, const std::string& bytes) {
  json_object_set_string_member(object, member, repairedUtf8(bytes).c_str());
  if (!isUtf8(bytes))
    json_object_set_string_member(object, exactName(member).c_str(), base64Of(bytes).c_str());
}

}  // namespace host
