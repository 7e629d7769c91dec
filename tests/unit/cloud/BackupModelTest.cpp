#include "BackupModel.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <talvoro_cloud.h>

#include <string>
#include <vector>

#include "CloudFixture.h"
#include "MvSvcTypes.h"

namespace {

using host::CloudRecord;
using host::cloud::Answer;
using morvik_test::Lines;
using morvik_test::TestBackupModel;

class BackupModelTest : public morvik_test::CloudFixture {
 protected:
  void SetUp() override {
    CloudFixture::SetUp();
    request_ = launchRequest(MV_OPERATION_BACKUP);
  }

  morvik_test::AppControlPtr request_;
};

// Every operation runs the exchange to its completion, passed on with the model and then over;
// only a backup uploads records. Without a handler a completion is ignored.
TEST_F(BackupModelTest, RunRegistersTheRecordCallbackOnlyForTheBackupOperation) {
  {
    TestBackupModel model(request_.get(), 1);
    ASSERT_TRUE(model.run(MV_OPERATION_BACKUP));
    EXPECT_TRUE(host::cloud::callBackupCompleted(true));
  }
  const std::pair<const char*, bool> cases[] = {
      {MV_OPERATION_BACKUP, true},
      {MV_OPERATION_GET_BACKUP_INFO, false},
      {nullptr, false},
      {MV_OPERATION_BACKUP "/", false},
  };
  const int handles = host::liveAppControlCount();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first ? c.first : "(null)");
    restart();
    TestBackupModel model(request_.get(), 1);
    std::vector<std::pair<bool, void*>> seen;
    model.setOnBackupCompleted(
        [&](bool success, void* userData) { seen.emplace_back(success, userData); });
    ASSERT_TRUE(model.run(c.first));
    EXPECT_EQ(launcherReplies(), std::vector<int>{APP_CONTROL_RESULT_SUCCEEDED});
    EXPECT_TRUE(host::cloud::callBackupPreparation());
    EXPECT_TRUE(host::cloud::callBackupKeysAndDates());
    EXPECT_EQ(host::cloud::backupRecordCallbackRegistered(), c.second);
    EXPECT_TRUE(host::cloud::callBackupCompleted(false));
    EXPECT_EQ(seen,
              (std::vector<std::pair<bool, void*>>{{false, static_cast<BackupModel*>(&model)}}));
    EXPECT_FALSE(host::cloud::callBackupCompleted(true));
  }
  EXPECT_EQ(host::liveAppControlCount(), handles);
}

// Without the library or records nothing is registered nor replied; a failed registration
// replies failure.
TEST_F(BackupModelTest, RunFailsWithoutTheLibraryRecordsOrCallbacks) {
  host::cloud::setInitializeFailure(TALVORO_CLOUD_ERROR_IO_ERROR);
  EXPECT_FALSE(TestBackupModel(request_.get(), 1).run(MV_OPERATION_BACKUP));
  host::cloud::setInitializeFailure(0);
  EXPECT_FALSE(TestBackupModel(request_.get(), 0).run(MV_OPERATION_BACKUP));
  EXPECT_FALSE(host::cloud::callBackupPreparation());
  EXPECT_TRUE(launcherReplies().empty());
  EXPECT_EQ(log(), (Lines{"E talvoro_cloud_initialize failed.(" +
                              std::to_string(TALVORO_CLOUD_ERROR_IO_ERROR) + ")",
                          "E talvoro_cloud is not initialized.",
                          "E talvoro_cloud_deinitialize failed.(" +
                              std::to_string(TALVORO_CLOUD_ERROR_NOT_INITIALIZED) + ")",
                          "E size is 0"}));
  EXPECT_FALSE(host::cloud::initialized());

  restart();
  host::cloud::failOperation("talvoro_cloud_backup_record_set_sending_keys_and_dates_cb", -7);
  EXPECT_FALSE(TestBackupModel(request_.get(), 1).run(MV_OPERATION_BACKUP));
  EXPECT_EQ(launcherReplies(), std::vector<int>{APP_CONTROL_RESULT_FAILED});
  EXPECT_EQ(log(),
            Lines{"E talvoro_cloud_backup_record_set_sending_keys_and_dates_cb failed.(-7)"});
  EXPECT_FALSE(host::cloud::callBackupCompleted(true));
}

TEST_F(BackupModelTest, KeysAndDatesDeclareSizeRecordsWithTheTimeInMilliseconds) {
  TestBackupModel model(request_.get(), 3);
  ASSERT_TRUE(model.run(MV_OPERATION_BACKUP));
  const gint64 before = g_get_real_time() / 1000;
  ASSERT_TRUE(host::cloud::callBackupKeysAndDates());
  const gint64 after = g_get_real_time() / 1000;
  const Answer declaration = onlyAnswer();
  EXPECT_EQ(declaration.kind, Answer::Kind::kKeysAndDates);
  EXPECT_TRUE(declaration.success);
  ASSERT_EQ(declaration.records.size(), 3u);
  Lines expectedLog;
  for (const CloudRecord& record : declaration.records) {
    EXPECT_EQ(record.key, std::optional<std::string>("key"));
    ASSERT_TRUE(record.date);
    const gint64 date = std::stoll(*record.date);
    EXPECT_TRUE(std::to_string(date) == *record.date && date >= before && date <= after)
        << *record.date;
    EXPECT_FALSE(record.value);
    expectedLog.push_back("I Setting key and date for cloud upload [key=key, date=" + *record.date +
                          "]");
  }
  EXPECT_EQ(log(), expectedLog);
  EXPECT_TRUE(model.asked.empty());
}

// Records past the model's size keep no value; one without a key or date still gets its own.
TEST_F(BackupModelTest, RecordCallbackFillsTheFirstSizeRecordsAndHandsOverTheFile) {
  TestBackupModel model(request_.get(), 2);
  ASSERT_TRUE(model.run(MV_OPERATION_BACKUP));
  const std::vector<CloudRecord> records = {{std::nullopt, std::string("1"), std::nullopt},
                                            {std::string("key"), std::nullopt, std::nullopt},
                                            {std::string("key"), std::string("3"), std::nullopt}};
  ASSERT_TRUE(host::cloud::callBackupRecords(records));
  EXPECT_EQ(model.asked, (std::vector<unsigned int>{0, 1}));
  EXPECT_EQ(log(), (Lines{"E talvoro_cloud_record_get_key - key is nullptr.",
                          "I backup jsonStr : {\"doc\":0}",
                          "E talvoro_cloud_record_get_date - date is nullptr.",
                          "I backup jsonStr : {\"doc\":1}"}));
  const Answer upload = onlyAnswer();
  EXPECT_EQ(upload.kind, Answer::Kind::kBackupPath);
  EXPECT_TRUE(upload.success);
  ASSERT_EQ(upload.path, std::optional<std::string>(sharedPath() + "backup.dat"));
  std::vector<CloudRecord> written;
  std::string reason;
  ASSERT_TRUE(host::readRecordFile(*upload.path, written, reason)) << reason;
  std::vector<CloudRecord> expected = records;
  expected[0].value = "{\"doc\":0}";
  expected[1].value = "{\"doc\":1}";
  EXPECT_EQ(written, expected);

  // Without a list there is no file to hand over.
  ASSERT_TRUE(host::cloud::callBackupRecordsWithoutList());
  const Answer none = onlyAnswer();
  EXPECT_TRUE(none.kind == Answer::Kind::kBackupPath && !none.success && !none.path);
}

}  // namespace
