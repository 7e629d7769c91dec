#ifndef MORVIK_EMU_CLI_H
#define MORVIK_EMU_CLI_H

#include <glib.h>
#include <json-glib/json-glib.h>

#include "emu/CloudStore.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace emucli {

// Exit statuses shared by every verb; 1 is each verb's own "not as expected" (see its --help).
constexpr int kStatusOk = 0;
constexpr int kStatusUsage = 2;
// Standard output did not take everything (a full disk, a closed pipe).
constexpr int kStatusOutput = 3;

// Prints "morvik-emu: REASON" on stderr and returns kStatusUsage.
int fail(const std::string& reason);
// Writes `text` to stdout and flushes it: kStatusOk, or failedOutput().
int writeOut(const std::string& text);
// Names the failed write (errno) on stderr and returns kStatusOutput.
int failedOutput();

// `morvik-emu NAME PARAMETERS`: one row of the verb table.
struct Verb {
  const char* name;
  const char* parameters;  // as the usage line shows them, e.g. "DIR1 DIR2"
  const char* summary;     // one line
  const char* details;     // what the verb's --help adds below its options (exit statuses)
  int (*run)(const Verb& verb, int argc, char** argv);  // argv[0] is the verb's name
};

// A verb's command line, parsed with GLib's GOptionContext: "--opt VALUE" and "--opt=VALUE",
// --help, options anywhere among the parameters, "--" before a parameter that starts with '-'.
// An unknown option is called unknown and a single-value option given twice is refused.
class VerbOptions {
 public:
  explicit VerbOptions(const Verb& verb);
  ~VerbOptions();

  VerbOptions(const VerbOptions&) = delete;
  VerbOptions& operator=(const VerbOptions&) = delete;

  // The targets must outlive parse().
  void flag(const char* name, const char* help, bool* set);
  void value(const char* name,
             const char* valueName,
             const char* help,
             std::optional<std::string>* value);
  // "--name" alone or "--name=VALUE"; `given` is set either way.
  void optionalValue(const char* name,
                     const char* valueName,
                     const char* help,
                     bool* given,
                     std::optional<std::string>* value);
  // Gives the option added last a one-letter name too ("-o").
  void shortName(char letter) { options_.back().shortName = letter; }
  // May be given any number of times.
  void values(const char* name,
              const char* valueName,
              const char* help,
              std::vector<std::string>* values);

  // Lists in --help, from the program's own table, what `placeholder` (a parameter, or an
  // option's value) may be: "NAME is one of:", then a line each, its syntax and what it does.
  // The completion generated from --help offers them.
  void choices(const char* placeholder,
               const std::vector<std::pair<std::string, std::string>>& entries);

  // Returns -1 when the verb is to run on positional(); otherwise the status to exit with, after
  // printing the help (0) or a one-line reason (2).
  int parse(int argc, char** argv);
  const std::vector<std::string>& positional() const { return positional_; }

 private:
  enum class Kind { kFlag, kValue, kOptionalValue, kValues };
  struct Option {
    std::string name;
    Kind kind;
    const char* valueName;
    const char* help;
    bool* set;
    std::optional<std::string>* value;
    std::vector<std::string>* values;
    char shortName = 0;
  };

  static gboolean onOption(const char* name, const char* value, gpointer self, GError** error);

  const Verb& verb_;
  std::vector<Option> options_;
  std::vector<std::string> positional_;
  std::string choices_;  // what choices() adds to --help
  bool help_ = false;
};

// The IDs of the sets in the cloud directory, which must exist; false with a one-line reason.
// Names in the directory that look like sets but are not a set's one name go to `ignored`.
bool listCloudSets(const emu::CloudStore& store,
                   std::vector<unsigned long long>& ids,
                   std::string& error,
                   std::vector<std::string>* ignored = nullptr);
// The one backup document that set `id` holds; false with a one-line reason.
bool readSetDocument(const emu::CloudStore& store,
                     unsigned long long id,
                     std::string& document,
                     std::string& error);

// Members of the object `builder` is in; text by the rule of MvText.h.
void addString(JsonBuilder* builder, const char* member, const std::string& value);
void addStringOrNull(JsonBuilder* builder, const char* member, const std::string* value);
void addInt(JsonBuilder* builder, const char* member, long long value);

// Prints the root of `builder` as JSON indented by two spaces, then a newline. Returns
// kStatusOk, or fails when stdout cannot take it.
int printJson(JsonBuilder* builder);

}  // namespace emucli

#endif
