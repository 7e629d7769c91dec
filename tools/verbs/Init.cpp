// morvik-emu init: a new watch.
#include <string>

#include "EmuVerbs.h"
#include "MvWatchNames.h"
#include "emu/DirectoryKind.h"
#include "emu/SampleWatch.h"
#include "launcher/DeviceAdmission.h"

namespace emucli {

namespace {

const int kMaxHeavyFactor = 16;

}  // namespace

int runInit(const Verb& verb, int argc, char** argv) {
  bool sample = false;
  bool blank = false;
  bool heavy = false;
  std::optional<std::string> factorText;
  VerbOptions options(verb);
  options.flag("sample", "The user's setup: faces, photos, watch apps, downloaded apps", &sample);
  options.flag("blank", "None of the user's setup, the same platform apps and store", &blank);
  options.optionalValue("heavy", "N", "The benchmark's reference watch, N times its photos", &heavy,
                        &factorText);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1 || (!sample && !blank && !heavy))
    return fail("init needs DIR and one of --sample, --blank or --heavy[=N]");
  if (sample && blank)
    return fail("init takes --sample or --blank, not both");

  int factor = 1;
  if (factorText) {
    guint64 value = 0;
    if (blank)
      return fail("--blank --heavy makes a watch without photos: --heavy takes no N there");
    if (!g_ascii_string_to_unsigned(factorText->c_str(), 10, 1, kMaxHeavyFactor, &value, nullptr))
      return fail("--heavy needs N from 1 to " + std::to_string(kMaxHeavyFactor) + ", not '" +
                  *factorText + "'");
    factor = static_cast<int>(value);
  }

  const std::string& dir = options.positional()[0];
  std::string error;
  if (!launcher::fitsWatchBuffers(dir, MV_SERVICE_APP_ID, error))
    return fail(error);
  if (emu::classifyDirectory(dir) == emu::DirectoryKind::kCloud)
    return fail("'" + dir + "' is a cloud, not a watch");
  launcher::DeviceLock lock;
  if (g_file_test(dir.c_str(), G_FILE_TEST_IS_DIR) && !lock.acquire(dir, error))
    return fail(error);
  std::string made;
  bool done;
  if (heavy && blank) {
    done = emu::createHeavyBlankWatch(dir, error);
    made = "heavy blank";
  } else if (heavy) {
    done = emu::createHeavyWatch(dir, factor, error);
    made = "heavy (" + std::to_string(factor) + "x photos)";
  } else if (blank) {
    done = emu::createBlankWatch(dir, error);
    made = "blank";
  } else {
    done = emu::createSampleWatch(dir, error);
    made = "sample";
  }
  if (!done)
    return fail(error);
  printf("made a %s watch in %s\n", made.c_str(), dir.c_str());
  return kStatusOk;
}

}  // namespace emucli
