#ifndef MORVIK_TEST_CLOUD_FIXTURE_H
#define MORVIK_TEST_CLOUD_FIXTURE_H

#include <app_control.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BackupModel.h"
#include "LogLineMatcher.h"
#include "MvHandles.h"
#include "PlatformFixture.h"
#include "RestoreModel.h"
#include "host/AppControl.h"
#include "host/CloudLibrary.h"

namespace morvik_test {

using AppControlPtr = MvAppControlPtr;
using Lines = std::vector<std::string>;

// Numbered documents (or `document` when set), remembering which ones were asked for.
class TestBackupModel : public BackupModel {
 public:
  TestBackupModel(app_control_h request, unsigned int size) : BackupModel(request, size) {}
  std::string getKeyStr() override { return std::string(); }
  std::string getJsonStr(unsigned int index) override {
    asked.push_back(index);
    return document.empty() ? "{\"doc\":" + std::to_string(index) + "}" : document;
  }
  std::string document;
  std::vector<unsigned int> asked;
};

// Remembers every record it is given and answers with `key`.
class TestRestoreModel : public RestoreModel {
 public:
  explicit TestRestoreModel(app_control_h request) : RestoreModel(request) {}
  std::string restoreRecord(int index, const char* value) override {
    restored.emplace_back(index, value ? value : "(no value)");
    return key;
  }
  std::string key = "key";
  std::vector<std::pair<int, std::string>> restored;
};

// The platform fixture with a fresh cloud library, and launch requests as the launcher makes
// them (so that replies to them reach the launcher).
class CloudFixture : public PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    host::cloud::reset();
  }
  void TearDown() override {
    host::cloud::reset();
    PlatformFixture::TearDown();
  }

  // A fresh library, log and record within one test.
  void restart() {
    host::cloud::reset();
    platform().record().clear();
    platform().log().clear();
  }

  Lines log() { return serviceMessages(platform().log()); }

  // The one answer the last callback gave, with every list and record freed.
  host::cloud::Answer onlyAnswer() {
    std::vector<host::cloud::Answer> answers = host::cloud::takeAnswers();
    EXPECT_EQ(answers.size(), 1u);
    EXPECT_EQ(host::cloud::liveLists(), 0);
    EXPECT_EQ(host::cloud::liveRecords(), 0);
    return answers.empty() ? host::cloud::Answer{} : answers[0];
  }

  static AppControlPtr launchRequest(const char* operation) {
    app_control_s handle;
    handle.appId = kSelfAppId;
    handle.hasOperation = true;
    handle.operation = operation;
    handle.launchId = 1;
    return AppControlPtr(host::cloneAppControl(handle));
  }

  // The results of every reply to the launcher so far.
  std::vector<int> launcherReplies() {
    std::vector<int> codes;
    for (const host::BoundaryEvent& event :
         platform().record().ofKind(host::BoundaryEvent::Kind::kReplyToLauncher))
      codes.push_back(event.code);
    return codes;
  }

  std::string sharedPath() { return platform().sharedTrustedPath(kSelfAppId); }
};

}  // namespace morvik_test

#endif
