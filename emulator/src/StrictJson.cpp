#include "emu/StrictJson.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "MvJsonNesting.h"
#include "emu/OutsideText.h"

namespace emu {

namespace {

// A strict JSON scan that knows where it is.
class StrictScan {
 public:
  explicit StrictScan(const std::string& text) : text_(text) {}

  bool run(std::string& error) {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      const bool startsValue = c == '"' || c == '{' || c == '[' || c == '-' ||
                               (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
      if (startsValue && open_.empty()) {
        // json-glib reads the first text and drops the rest unseen.
        if (sawText_)
          return fail("a second JSON text begins here; a document is one JSON text", error);
        sawText_ = true;
      }
      if (c == '"') {
        if (!string(error))
          return false;
      } else if (c == '{' || c == '[') {
        if (open_.size() == static_cast<size_t>(kMvJsonMaxNesting))
          return fail("nests deeper than " + std::to_string(kMvJsonMaxNesting) + " levels", error);
        open_.push_back({c, line_, column_});
        step();
      } else if (c == '}' || c == ']') {
        if (!open_.empty())
          open_.pop_back();
        step();
      } else if (c == '-' || (c >= '0' && c <= '9')) {
        if (!number(error))
          return false;
      } else if (c >= 'a' && c <= 'z') {
        if (!word(error))
          return false;
      } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',' || c == ':') {
        step();
      } else {
        return fail(describe(c) + " is not JSON", error);
      }
    }
    if (open_.empty())
      return true;
    // json-glib would blame the last value it read.
    const Open& last = open_.back();
    return fail(std::string("the text ends inside the ") +
                    (last.bracket == '{' ? "object" : "array") + " opened at line " +
                    std::to_string(last.line) + ", column " + std::to_string(last.column),
                error);
  }

 private:
  struct Open {
    char bracket;
    size_t line;
    size_t column;
  };

  static std::string describe(char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    char text[24];
    if (byte < 0x20 || byte >= 0x7f)
      snprintf(text, sizeof text, "byte 0x%02X", byte);
    else
      snprintf(text, sizeof text, "'%c'", c);
    return text;
  }

  // Moves one byte on; a column is a character, so UTF-8 continuation bytes take none.
  void step() {
    const unsigned char byte = static_cast<unsigned char>(text_[at_++]);
    if (byte == '\n') {
      ++line_;
      column_ = 1;
    } else if ((byte & 0xC0) != 0x80) {
      ++column_;
    }
  }

  bool fail(const std::string& what, std::string& error) const {
    error = "line " + std::to_string(line_) + ", column " + std::to_string(column_) + ": " + what;
    return false;
  }

  bool string(std::string& error) {
    step();
    while (at_ < text_.size()) {
      const unsigned char c = static_cast<unsigned char>(text_[at_]);
      if (c == '"') {
        step();
        return true;
      }
      if (c < 0x20)
        return fail("a raw control character (" + describe(text_[at_]) + ") in a string", error);
      if (c == '\\') {
        const size_t length = escapeLength();
        if (length == 0)
          return fail("an escape that is not JSON", error);
        for (size_t i = 0; i < length; ++i)
          step();
        continue;
      }
      step();
    }
    return fail("a string that does not end", error);
  }

  // The length of the escape at `at_`, 0 when JSON has no such escape.
  size_t escapeLength() const {
    if (at_ + 1 >= text_.size())
      return 0;
    if (strchr("\"\\/bfnrt", text_[at_ + 1]) != nullptr && text_[at_ + 1] != '\0')
      return 2;
    if (text_[at_ + 1] != 'u' || at_ + 6 > text_.size())
      return 0;
    for (size_t i = at_ + 2; i < at_ + 6; ++i) {
      if (!g_ascii_isxdigit(text_[i]))
        return 0;
    }
    return 6;
  }

  bool number(std::string& error) {
    const size_t start = at_;
    const size_t line = line_, column = column_;
    bool integer = true;
    while (at_ < text_.size() && strchr("0123456789+-.eE", text_[at_]) != nullptr &&
           text_[at_] != '\0') {
      integer = integer && (text_[at_] == '-' || g_ascii_isdigit(text_[at_]));
      step();
    }
    const std::string token = text_.substr(start, at_ - start);
    bool fits;
    if (integer) {
      // A malformed number is json-glib's to report; only the range is checked here.
      gint64 value = 0;
      g_autoptr(GError) invalid = nullptr;
      fits =
          g_ascii_string_to_signed(token.c_str(), 10, G_MININT64, G_MAXINT64, &value, &invalid) ||
          g_error_matches(invalid, G_NUMBER_PARSER_ERROR, G_NUMBER_PARSER_ERROR_INVALID);
    } else {
      fits = std::isfinite(g_ascii_strtod(token.c_str(), nullptr));
    }
    if (fits)
      return true;
    line_ = line;
    column_ = column;
    return fail("the number " + token + " is out of range", error);
  }

  bool word(std::string& error) {
    const size_t start = at_;
    while (at_ < text_.size() && text_[at_] >= 'a' && text_[at_] <= 'z')
      ++at_;
    const std::string token = text_.substr(start, at_ - start);
    at_ = start;
    if (token != "true" && token != "false" && token != "null")
      return fail("'" + token + "' is not JSON", error);
    for (size_t i = 0; i < token.size(); ++i)
      step();
    return true;
  }

  const std::string& text_;
  size_t at_ = 0;
  size_t line_ = 1;
  size_t column_ = 1;
  std::vector<Open> open_;
  bool sawText_ = false;
};

// json-glib's "<data>:3:5: Parse error: unexpected ..." as "line 3, column 5: unexpected ...".
std::string parseError(const GError* error) {
  unsigned line = 0, column = 0;
  int consumed = 0;
  if (sscanf(error->message, "<data>:%u:%u: Parse error: %n", &line, &column, &consumed) == 2 &&
      consumed > 0)
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
           (error->message + consumed);
  return error->message;
}

JsonNode* parseJson(const std::string& text, std::string& error) {
  if (!admitJsonText(text.data(), text.size(), kMaxDocumentBytes, error))
    return nullptr;
  g_autoptr(JsonParser) parser = json_parser_new_immutable();
  g_autoptr(GError) parseFailure = nullptr;
  if (!json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()),
                                  &parseFailure)) {
    error = parseError(parseFailure);
    return nullptr;
  }
  JsonNode* root = json_parser_get_root(parser);
  if (!root) {
    error = "no JSON value";
    return nullptr;
  }
  return json_node_ref(root);
}

}  // namespace

JsonNode* parseStrictJson(const std::string& text, std::string& error) {
  if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
    error = "not UTF-8 text";
    return nullptr;
  }
  if (!StrictScan(text).run(error))
    return nullptr;
  g_autoptr(JsonNode) root = parseJson(text, error);
  if (!root)
    return nullptr;
  std::string again;
  g_autoptr(JsonNode) back = parseJson(generateJson(root, false), again);
  if (!back || !json_node_equal(root, back)) {
    error = "json-glib does not read it back the same";
    return nullptr;
  }
  return static_cast<JsonNode*>(g_steal_pointer(&root));
}

std::string generateJson(JsonNode* root, bool pretty) {
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_root(generator, root);
  json_generator_set_pretty(generator, pretty);
  json_generator_set_indent(generator, 2);
  gsize length = 0;
  g_autofree char* text = json_generator_to_data(generator, &length);
  return std::string(text, length);
}

}  // namespace emu
