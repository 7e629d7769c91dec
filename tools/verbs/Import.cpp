// morvik-emu import: a backup document stored as a new set.
#include <errno.h>
#include <glib.h>
#include <unistd.h>

#include <string>

#include "EmuVerbs.h"
#include "emu/CloudStore.h"
#include "emu/DirectoryKind.h"
#include "emu/StrictJson.h"

namespace emucli {

namespace {

bool readFile(const std::string& file, std::string& document, std::string& error) {
  if (!g_file_test(file.c_str(), G_FILE_TEST_IS_REGULAR)) {
    error = "'" + file + "' is not a readable file";
    return false;
  }
  g_autofree char* contents = nullptr;
  gsize length = 0;
  g_autoptr(GError) readError = nullptr;
  if (!g_file_get_contents(file.c_str(), &contents, &length, &readError)) {
    error = readError->message;
    return false;
  }
  document.assign(contents, length);
  return true;
}

// Up to one byte past what a record holds, so that a larger document is refused, not cut.
bool readStdin(std::string& document, std::string& error) {
  char chunk[64 * 1024];
  for (;;) {
    const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0) {
      error = std::string("cannot read standard input: ") + g_strerror(errno);
      return false;
    }
    if (got == 0 || document.size() > host::kMaxFieldBytes)
      return true;
    document.append(chunk, static_cast<size_t>(got));
  }
}

}  // namespace

int runImport(const Verb& verb, int argc, char** argv) {
  VerbOptions options(verb);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 2)
    return fail("import needs CLOUD and FILE");
  const std::string& cloudDir = options.positional()[0];
  const std::string file =
      options.positional()[1] == "-" ? "standard input" : options.positional()[1];
  std::string document;
  std::string error;
  if (!emu::requireCloud(cloudDir, true, error))
    return fail(error);
  if (options.positional()[1] == "-" ? !readStdin(document, error)
                                     : !readFile(file, document, error))
    return fail(error);
  if (document.size() > host::kMaxFieldBytes)
    return fail("'" + file + "' is larger than a cloud record can hold");
  if (document.find('\0') != std::string::npos ||
      !g_utf8_validate(document.data(), static_cast<gssize>(document.size()), nullptr))
    return fail("'" + file + "' is not UTF-8 text");
  g_autoptr(JsonNode) root = emu::parseStrictJson(document, error);
  if (!root)
    return fail("'" + file + "' is not a backup document: " + error);
  if (!JSON_NODE_HOLDS_OBJECT(root))
    return fail("'" + file + "' is not a backup document: it is not a JSON object");
  if (!g_file_test(cloudDir.c_str(), G_FILE_TEST_IS_DIR) &&
      g_mkdir_with_parents(cloudDir.c_str(), 0755) != 0)
    return fail("cannot create the cloud directory '" + cloudDir + "'");

  host::CloudRecord record;
  record.key = "key";
  record.date = std::to_string(g_get_real_time() / 1000);
  record.value = document;
  emu::CloudStore store(cloudDir);
  unsigned long long id = 0;
  if (!store.add({record}, id, error))
    return fail(error);
  printf("stored set %llu in %s\n", id, cloudDir.c_str());
  return kStatusOk;
}

}  // namespace emucli
