#include "emu/CloudAgent.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CloudFixture.h"
#include "MvSvcTypes.h"
#include "TempDir.h"
#include "emu/CloudStore.h"
#include "emu/StoredSet.h"

namespace {

using host::CloudRecord;
using morvik_test::Lines;

// The service's side played by test models, owned and released as the service's own flows
// do: the completion handler destroys the model.
class CloudAgentTest : public morvik_test::CloudFixture {
 protected:
  void TearDown() override {
    agent_.reset();
    CloudFixture::TearDown();
  }

  void startAgent(const char* operation, std::map<std::string, std::string> faults) {
    // One agent at a time: each takes the library's listener for its lifetime.
    agent_.reset();
    completion_ = -1;
    request_ = launchRequest(operation);
    agent_ = std::make_unique<emu::CloudAgent>(platform(), cloud_.path(), faults, Lines{operation});
  }

  // Runs a backup to its end; returns the completion (1, 0, -1 none).
  int backup(const std::string& value, std::map<std::string, std::string> faults = {}) {
    startAgent(MV_OPERATION_BACKUP, faults);
    auto* model = new morvik_test::TestBackupModel(request_.get(), 1);
    model->document = value;
    model->setOnBackupCompleted([this](bool success, void* userData) {
      completion_ = success ? 1 : 0;
      delete static_cast<morvik_test::TestBackupModel*>(userData);
    });
    EXPECT_TRUE(model->run(MV_OPERATION_BACKUP));
    EXPECT_TRUE(runLoopUntil([this] { return completion_ >= 0 && agent_->idle(); }, 20));
    return completion_;
  }

  int restore(const char* key = "key") {
    startAgent(MV_OPERATION_RESTORE, {});
    auto* model = new morvik_test::TestRestoreModel(request_.get());
    model->key = key;
    model->setOnRestoreCompleted([this](bool success, void* userData) {
      auto* done = static_cast<morvik_test::TestRestoreModel*>(userData);
      restored_ = done->restored;
      completion_ = success ? 1 : 0;
      delete done;
    });
    EXPECT_TRUE(model->run());
    EXPECT_TRUE(runLoopUntil([this] { return completion_ >= 0 && agent_->idle(); }, 20));
    return completion_;
  }

  Lines summary() {
    launcher::RunReport report;
    agent_->report(report, [this](unsigned long long id) {
      return emu::StoredSet::read(store_, id).describe();
    });
    return report.lines();
  }

  void storeSet(const std::string& value) {
    unsigned long long id = 0;
    std::string error;
    const CloudRecord record{std::string("key"), std::to_string(g_get_real_time() / 1000), value};
    ASSERT_TRUE(store_.add({record}, id, error)) << error;
  }

  morvik_test::TempDir cloud_;
  emu::CloudStore store_{cloud_.path()};
  morvik_test::AppControlPtr request_;
  std::unique_ptr<emu::CloudAgent> agent_;
  int completion_ = -1;
  std::vector<std::pair<int, std::string>> restored_;
};

// A failed step stores nothing; each step waits the cloud's delay. Flows with each step failed
// run end to end; here the lines the agent reports.
TEST_F(CloudAgentTest, BackupStoresTheDocumentAndReportsItsContents) {
  ASSERT_EQ(backup("{}", {{"cloud-fail", "upload"}}), 0);
  EXPECT_EQ(summary(), Lines{"cloud     request 1, backup: FAILED at upload: cloud-fail=upload"});
  const std::string document =
      "{\"watch_items\":[{\"pkgid\":\"f\",\"svcid\":\"com.talvoro.watchface-service\"},"
      "{\"pkgid\":\"d\",\"svcid\":\"d\",\"result\":\"downloaded\"},{\"svcid\":\"w.service\"}],"
      "\"watch_custom_bg\":[{\"file_name\":\"a\"},{\"file_name\":\"b\"}]}";
  const double start = platform().now();
  ASSERT_EQ(backup(document, {{"cloud-delay", "150"}}), 1);
  EXPECT_GE(platform().now() - start, 0.6);
  EXPECT_EQ(summary(), (Lines{"cloud     request 1, backup: stored as set 1 (1 record, " +
                                  std::to_string(document.size()) + " bytes of value)",
                              "cloud     request 1, backup: document: 1 faces, 1 watch apps, 1 "
                              "downloaded apps, 2 photos"}));
}

// The newest set goes to the service, which must send each record back with its key.
TEST_F(CloudAgentTest, RestoreHandsTheNewestSetToTheServiceAndChecksWhatComesBack) {
  storeSet("{\"set\":1}");
  storeSet("{\"set\":2}");
  ASSERT_EQ(restore(), 1);
  EXPECT_EQ(restored_, (std::vector<std::pair<int, std::string>>{{0, "{\"set\":2}"}}));
  EXPECT_EQ(summary(), Lines{"cloud     request 1, restore: set 2: 1 record restored"});
  ASSERT_EQ(restore("other"), 0);
  ASSERT_EQ(summary().size(), 1u);
  EXPECT_EQ(summary()[0].rfind("cloud     request 1, restore: FAILED at restore: record 0 came "
                               "back with key \"other\"",
                               0),
            0u)
      << summary()[0];

  // 200,000 empty records: neither the cloud nor the end of the run takes them one by one.
  std::vector<CloudRecord> many(200000,
                                CloudRecord{std::string("key"), std::string("1"), std::string()});
  std::string error;
  ASSERT_TRUE(host::writeRecordFile(store_.setPath(3), many, error)) << error;
  ASSERT_EQ(restore(), 0);
  EXPECT_EQ(summary(), Lines{"cloud     request 1, restore: FAILED at download: set 3 holds "
                             "200000 records, more than the 1024 the cloud hands out"});
  EXPECT_EQ(emu::StoredSet::read(store_, 3).describe(),
            "set 3 holds 200000 records, more than the 1024 a set may hold");
  unsigned long long id = 0;
  EXPECT_FALSE(store_.add(many, id, error));
}

}  // namespace
