#ifndef MVSVC_UTF8_REPAIR_H
#define MVSVC_UTF8_REPAIR_H

#include <stddef.h>

#include <string>

// Makes a text that is not UTF-8 readable to json-glib, as g_utf8_make_valid does, but marks
// each byte it replaces with a character the text does not hold itself: a Unicode noncharacter,
// which no text carries. A string of the parsed document then holds the mark exactly when one
// of its bytes was replaced, and a valid U+FFFD the text held is told apart from a repair.
class MvSvcUtf8Repair {
 public:
  MvSvcUtf8Repair(const char* text, size_t length);

  // The repaired text, until forgotten: once parsed, the tree holds what it needs of it.
  const std::string& text() const { return _text; }
  void forgetText() { std::string().swap(_text); }
  // Whether `value`, read from the repaired text, holds a repaired byte.
  bool repaired(const std::string& value) const;
  // `value` as a log line shows it: each repaired byte as U+FFFD.
  std::string shown(const std::string& value) const;

 private:
  // U+FFFD when the text holds every noncharacter, raw or escaped: a U+FFFD of the text's own
  // then counts as repaired too.
  std::string _mark;
  std::string _text;
};

#endif
