#include "MvJsonText.h"

namespace {

std::string exactName(const char* member) {
  return std::string(member) + "_base64";
}

}  // namespace

bool mvIsUtf8(const std::string& bytes) {
  return g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr);
}

std::string mvRepairedUtf8(const std::string& bytes) {
  if (mvIsUtf8(bytes))
    return bytes;
  g_autofree gchar* repaired = g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size()));
  return repaired;
}

std::string mvBase64Of(const std::string& bytes) {
  g_autofree gchar* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

void mvAddTextMember(JsonBuilder* builder, const char* member, const std::string& bytes) {
  json_builder_set_member_name(builder, member);
  json_builder_add_string_value(builder, mvRepairedUtf8(bytes).c_str());
  if (mvIsUtf8(bytes))
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_add_string_value(builder, mvBase64Of(bytes).c_str());
}

void mvAddTextMap(JsonBuilder* builder,
                  const char* member,
                  const std::map<std::string, std::string>& values) {
  json_builder_set_member_name(builder, member);
  json_builder_begin_object(builder);
  bool allText = true;
  for (const auto& entry : values) {
    json_builder_set_member_name(builder, mvRepairedUtf8(entry.first).c_str());
    json_builder_add_string_value(builder, mvRepairedUtf8(entry.second).c_str());
    allText = allText && mvIsUtf8(entry.second);
  }
  json_builder_end_object(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_begin_object(builder);
  for (const auto& entry : values) {
    if (mvIsUtf8(entry.second))
      continue;
    json_builder_set_member_name(builder, mvRepairedUtf8(entry.first).c_str());
    json_builder_add_string_value(builder, mvBase64Of(entry.second).c_str());
  }
  json_builder_end_object(builder);
}

void mvAddTextArray(JsonBuilder* builder,
                    const char* member,
                    const std::vector<std::string>& values) {
  json_builder_set_member_name(builder, member);
  json_builder_begin_array(builder);
  bool allText = true;
  for (const std::string& value : values) {
    json_builder_add_string_value(builder, mvRepairedUtf8(value).c_str());
    allText = allText && mvIsUtf8(value);
  }
  json_builder_end_array(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, exactName(member).c_str());
  json_builder_begin_array(builder);
  for (const std::string& value : values) {
    if (mvIsUtf8(value))
      json_builder_add_null_value(builder);
    else
      json_builder_add_string_value(builder, mvBase64Of(value).c_str());
  }
  json_builder_end_array(builder);
}

void mvSetTextMember(JsonObject* object, const char* member, const std::string& bytes) {
  json_object_set_string_member(object, member, mvRepairedUtf8(bytes).c_str());
  if (!mvIsUtf8(bytes))
    json_object_set_string_member(object, exactName(member).c_str(), mvBase64Of(bytes).c_str());
}
