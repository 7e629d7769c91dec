#include <glib.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"

namespace {

using EmuRun = morvik_test::ProcessResult;

EmuRun emu(std::vector<std::string> args) {
  return morvik_test::runEmu(std::move(args));
}

TEST(DiffCliTest, SameSetupIsZeroDifferencesAreOneAndBadInputIsTwo) {
  morvik_test::TempDir temp;
  const std::string sample = temp.path() + "/sample";
  const std::string copy = temp.path() + "/copy";
  const std::string blank = temp.path() + "/blank";
  ASSERT_EQ(emu({"init", sample, "--sample"}).status, 0);
  ASSERT_EQ(emu({"init", copy, "--sample"}).status, 0);
  ASSERT_EQ(emu({"init", blank, "--blank"}).status, 0);

  EmuRun run = emu({"diff", sample, copy});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "same setup\n");

  run = emu({"diff", blank, sample});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_EQ(run.out.rfind("idle face: com.talvoro.face.classic vs com.talvoro.face.aurora\n", 0),
            0u)
      << run.out;
  EXPECT_NE(run.out.find("\nphoto bg-aurora.jpg: only on " + sample + "\n"), std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\napp com.indie.clock-tidal: only on " + sample + "\n"),
            std::string::npos)
      << run.out;
  EXPECT_EQ(run.err, "");

  run = emu({"diff", sample, temp.path() + "/nowhere"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("morvik-emu: ", 0), 0u) << run.err;
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
  EXPECT_NE(run.err.find("nowhere/device.json"), std::string::npos) << run.err;

  run = emu({"diff", sample});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "morvik-emu: diff needs DIR1 and DIR2\n");
}

}  // namespace
