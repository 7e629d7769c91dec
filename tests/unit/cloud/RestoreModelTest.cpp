#include "RestoreModel.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <talvoro_cloud.h>
#include <time.h>

#include <string>
#include <utility>
#include <vector>

#include "CloudFixture.h"
#include "MvSvcTypes.h"

namespace {

using host::CloudRecord;
using host::cloud::Answer;
using morvik_test::Lines;
using morvik_test::TestRestoreModel;
using Restored = std::vector<std::pair<int, std::string>>;

CloudRecord stored(const char* value) {
  return CloudRecord{std::string("key"), std::string("1732300000123"), std::string(value)};
}

class RestoreModelTest : public morvik_test::CloudFixture {
 protected:
  void SetUp() override {
    CloudFixture::SetUp();
    request_ = launchRequest(MV_OPERATION_RESTORE);
    downloaded_ = deviceDir() + "/downloaded.dat";
  }

  void download(const std::vector<CloudRecord>& records) {
    std::string reason;
    ASSERT_TRUE(host::writeRecordFile(downloaded_, records, reason)) << reason;
  }

  morvik_test::AppControlPtr request_;
  std::string downloaded_;
};

// A record without a value restores nothing, but still goes back with its key and date, or
// the cloud would refuse the whole list.
TEST_F(RestoreModelTest, RecordsAreRestoredInOrderAndSentBackStampedInSeconds) {
  TestRestoreModel model(request_.get());
  model.key = "restored-key";
  ASSERT_TRUE(model.run());
  EXPECT_TRUE(host::cloud::callRestorePreparation());
  EXPECT_TRUE(host::cloud::callRestorationPath());
  const std::vector<CloudRecord> downloaded = {stored("{\"n\":0}"), {}, stored("{\"n\":2}")};
  download(downloaded);
  const long before = static_cast<long>(time(nullptr));
  ASSERT_TRUE(host::cloud::callRestoration(downloaded_));
  const long after = static_cast<long>(time(nullptr));

  EXPECT_EQ(model.restored, (Restored{{0, "{\"n\":0}"}, {1, "(no value)"}, {2, "{\"n\":2}"}}));
  EXPECT_EQ(log(),
            (Lines{"I value : {\"n\":0}", "E talvoro_cloud_record_get_value - value is nullptr.",
                   "I value : {\"n\":2}"}));
  std::vector<Answer> answers = host::cloud::takeAnswers();
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_TRUE(answers[0].kind == Answer::Kind::kRestorePreparation && answers[0].success);
  EXPECT_EQ(answers[1].path, std::optional<std::string>(sharedPath() + "restore.dat"));
  const Answer& sent = answers[2];
  EXPECT_TRUE(sent.kind == Answer::Kind::kRecordList && sent.success && sent.hadList);
  ASSERT_EQ(sent.records.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    const CloudRecord& record = sent.records[i];
    EXPECT_EQ(record.key, std::optional<std::string>("restored-key"));
    ASSERT_TRUE(record.date);
    const long date = std::stol(*record.date);
    EXPECT_TRUE(std::to_string(date) == *record.date && date >= before && date <= after)
        << *record.date;
    EXPECT_EQ(record.value, downloaded[i].value);
  }
  EXPECT_EQ(host::cloud::liveLists(), 0);
}

TEST_F(RestoreModelTest, RunFailsWithoutTheLibrary) {
  host::cloud::setInitializeFailure(-4);
  EXPECT_FALSE(TestRestoreModel(request_.get()).run());
  EXPECT_EQ(log(),
            (Lines{"E talvoro_cloud_initialize failed.(-4)", "E talvoro_cloud is not initialized.",
                   "E talvoro_cloud_deinitialize failed.(" +
                       std::to_string(TALVORO_CLOUD_ERROR_NOT_INITIALIZED) + ")"}));
  EXPECT_TRUE(launcherReplies().empty());
  EXPECT_FALSE(host::cloud::callRestorePreparation());
}

TEST_F(RestoreModelTest, ACorruptOrEmptyRecordFileGivesANullListAndFalse) {
  const Lines corruptLog = {"E talvoro_cloud_file_create_record_list() failed, errCode = [" +
                                std::to_string(TALVORO_CLOUD_ERROR_FILE_CORRUPT) + "]",
                            "E talvoro_cloud_list_get_record_count() failed, errCode = [" +
                                std::to_string(TALVORO_CLOUD_ERROR_INVALID_PARAMETER) + "]"};
  for (const bool corrupt : {true, false}) {
    SCOPED_TRACE(corrupt ? "corrupt" : "no records");
    restart();
    {
      TestRestoreModel model(request_.get());
      ASSERT_TRUE(model.run());
      if (corrupt)
        ASSERT_TRUE(g_file_set_contents(downloaded_.c_str(), "TVRF", 4, nullptr));
      else
        download({});
      ASSERT_TRUE(host::cloud::callRestoration(downloaded_));
      EXPECT_TRUE(model.restored.empty());
      std::vector<Answer> answers = host::cloud::takeAnswers();
      ASSERT_EQ(answers.size(), 1u);
      EXPECT_TRUE(answers[0].kind == Answer::Kind::kRecordList && !answers[0].success &&
                  !answers[0].hadList);
      EXPECT_EQ(log(), corrupt ? corruptLog : Lines{});
    }
    // The empty list the model kept is freed with the library.
    EXPECT_EQ(host::cloud::liveLists(), 0);
    EXPECT_EQ(host::cloud::liveRecords(), 0);
  }
}

// The second's registration fails: it replies failure and takes nothing of the first's.
// Whether the library refuses a second registrant or lets it take the callbacks over, the
// second model is refused before it registers: the first keeps its exchange to the end.
TEST_F(RestoreModelTest, ASecondExchangeIsRefusedWhileTheFirstRunsUnderEitherLibrary) {
  for (const char* registration : {"refuse", "replace"}) {
    SCOPED_TRACE(registration);
    std::string error;
    ASSERT_TRUE(platform().personality().set("cloud-registration", registration, error));
    restart();
    TestRestoreModel first(request_.get());
    TestRestoreModel second(request_.get());
    ASSERT_TRUE(first.run());
    EXPECT_FALSE(second.run());
    EXPECT_EQ(log(), Lines{"E A restore exchange is already running: refused"});
    EXPECT_EQ(launcherReplies(),
              (std::vector<int>{APP_CONTROL_RESULT_SUCCEEDED, APP_CONTROL_RESULT_FAILED}));
    download({stored("{}")});
    ASSERT_TRUE(host::cloud::callRestoration(downloaded_));
    EXPECT_EQ(first.restored.size(), 1u);
    EXPECT_TRUE(second.restored.empty());
    ASSERT_TRUE(host::cloud::callRestoreCompleted(true));
    TestRestoreModel third(request_.get());
    EXPECT_TRUE(third.run()) << "a completed exchange frees its kind";
  }
}

// The library asks for the restoration again while the first walk waits in a nested loop: the
// inner call is refused, and the outer walk ends as if nothing had happened.
TEST_F(RestoreModelTest, ARestorationEnteredAgainIsRefusedAndTheOuterOneGoesOn) {
  struct ReenteringModel : TestRestoreModel {
    using TestRestoreModel::TestRestoreModel;
    std::string restoreRecord(int index, const char* value) override {
      if (!entered++) {
        EXPECT_TRUE(host::cloud::callRestoration(path));
      }
      return TestRestoreModel::restoreRecord(index, value);
    }
    int entered = 0;
    std::string path;
  };
  ReenteringModel model(request_.get());
  model.path = downloaded_;
  ASSERT_TRUE(model.run());
  download({stored("{}")});
  ASSERT_TRUE(host::cloud::callRestoration(downloaded_));
  EXPECT_EQ(model.restored.size(), 1u);
  std::vector<Answer> answers = host::cloud::takeAnswers();
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_FALSE(answers[0].hadList);
  EXPECT_FALSE(answers[0].success);
  EXPECT_TRUE(answers[1].success);
  EXPECT_EQ(answers[1].records.size(), 1u);
  EXPECT_EQ(log(),
            (Lines{"I value : {}", "E Restoration asked for again while one runs: refused"}));
}

// The library completes the exchange while the restoration callback still runs (its transfer
// waits in a nested loop): the model hears of it once, after that callback, and may go then.
// Without a handler a completion is ignored.
TEST_F(RestoreModelTest, ACompletionDuringTheRestorationIsHeldUntilItsEnd) {
  {
    TestRestoreModel model(request_.get());
    ASSERT_TRUE(model.run());
    EXPECT_TRUE(host::cloud::callRestoreCompleted(true));
    EXPECT_FALSE(host::cloud::callRestoreCompleted(true));
  }
  struct CompletingModel : TestRestoreModel {
    using TestRestoreModel::TestRestoreModel;
    std::string restoreRecord(int index, const char* value) override {
      EXPECT_TRUE(host::cloud::callRestoreCompleted(false));
      EXPECT_EQ(*completions, 0);
      return TestRestoreModel::restoreRecord(index, value);
    }
    int* completions = nullptr;
  };
  int completions = 0;
  auto* model = new CompletingModel(request_.get());
  model->completions = &completions;
  model->setOnRestoreCompleted([&](bool success, void* done) {
    EXPECT_FALSE(success);
    EXPECT_EQ(done, static_cast<RestoreModel*>(model));
    ++completions;
    delete static_cast<CompletingModel*>(done);
  });
  ASSERT_TRUE(model->run());
  download({stored("{}")});
  ASSERT_TRUE(host::cloud::callRestoration(downloaded_));
  EXPECT_EQ(completions, 1);
  EXPECT_FALSE(host::cloud::callRestoration(downloaded_));
}

// Without its trusted directory the model says so as it is made.
TEST_F(RestoreModelTest, WithoutItsTrustedDirectoryTheModelSaysSo) {
  ASSERT_EQ(g_mkdir_with_parents((deviceDir() + "/apps").c_str(), 0755), 0);
  ASSERT_TRUE(g_file_set_contents((deviceDir() + "/apps/" + kSelfAppId).c_str(), "", 0, nullptr));
  TestRestoreModel model(request_.get());
  EXPECT_EQ(log(), Lines{"E get path failed"});
}

}  // namespace
