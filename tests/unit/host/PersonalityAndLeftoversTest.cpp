#include <Ecore.h>
#include <app_control.h>
#include <gtest/gtest.h>
#include <message_port.h>
#include <talvoro_cloud.h>

#include <string>
#include <vector>

#include "FakeApp.h"
#include "MvHandles.h"
#include "PlatformFixture.h"
#include "host/CloudLibrary.h"
#include "host/Leftovers.h"

namespace {

void request(void*) {}
void completed(bool, void*) {}
void message(int, const char*, const char*, bool, bundle*, void*) {}

class PersonalityTest : public morvik_test::PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    host::cloud::reset();
  }
  void TearDown() override {
    host::cloud::reset();
    PlatformFixture::TearDown();
  }

  void choose(const char* name, const char* value) {
    std::string error;
    ASSERT_TRUE(platform().personality().set(name, value, error)) << error;
  }

  std::vector<std::string> leftovers() {
    std::vector<std::string> found;
    for (const host::Leftover& leftover : host::findLeftovers(platform()))
      found.push_back(leftover.kind + ": " + leftover.name + (leftover.deliberate ? " (ok)" : ""));
    return found;
  }
};

// The leftovers are read off the same platform and cloud library.
using LeftoversTest = PersonalityTest;

// A second user of a running exchange's kind is refused, or takes the slot it names over.
TEST_F(PersonalityTest, ASecondRegistrantIsRefusedOrReplacesTheFirst) {
  int first = 1, second = 2;
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_backup_record_set_preparation_cb(request, &first),
            TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_backup_record_set_preparation_cb(request, &second),
            TALVORO_CLOUD_ERROR_INVALID_STATE);
  // The other kind is free.
  EXPECT_EQ(talvoro_cloud_restore_record_set_preparation_cb(request, &second),
            TALVORO_CLOUD_ERROR_NONE);

  choose("cloud-registration", "replace");
  EXPECT_EQ(talvoro_cloud_backup_record_set_preparation_cb(request, &second),
            TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_backup_record_set_completed_cb(completed, &second),
            TALVORO_CLOUD_ERROR_NONE);
  EXPECT_TRUE(host::cloud::callBackupCompleted(true));
  EXPECT_FALSE(host::cloud::callBackupPreparation()) << "a completion forgets every slot";
}

// Nested, the last deinitialise releases; flat, the first releases for every user, and the
// library's callbacks go with it.
TEST_F(PersonalityTest, InitialisationsNestOrOneDeinitialiseReleasesAll) {
  for (const char* initialization : {"nested", "flat"}) {
    SCOPED_TRACE(initialization);
    host::cloud::reset();
    choose("cloud-initialization", initialization);
    int user = 0;
    ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
    ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
    ASSERT_EQ(talvoro_cloud_restore_record_set_preparation_cb(request, &user),
              TALVORO_CLOUD_ERROR_NONE);
    ASSERT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
    const bool nested = std::string(initialization) == "nested";
    EXPECT_EQ(host::cloud::initialized(), nested);
    EXPECT_EQ(host::cloud::callRestorePreparation(), nested);
    EXPECT_EQ(talvoro_cloud_deinitialize(),
              nested ? TALVORO_CLOUD_ERROR_NONE : TALVORO_CLOUD_ERROR_NOT_INITIALIZED);
    EXPECT_FALSE(host::cloud::initialized());
  }
}

// Re-registering a name keeps its ID, or gives a new one that alone unregisters the port.
TEST_F(PersonalityTest, ARegisteredNameKeepsItsIdOrGetsANewOne) {
  int first = 0, second = 0;
  const int id = message_port_register_trusted_local_port("p", message, &first);
  EXPECT_EQ(message_port_register_trusted_local_port("p", message, &second), id);

  choose("port-reregistration", "new-id");
  const int renewed = message_port_register_trusted_local_port("p", message, &first);
  EXPECT_NE(renewed, id);
  EXPECT_EQ(platform().ports().findByName("p")->userData, &first);
  EXPECT_EQ(message_port_unregister_trusted_local_port(id), MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  EXPECT_NE(platform().ports().findByName("p"), nullptr);
  EXPECT_EQ(message_port_unregister_trusted_local_port(renewed), MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(platform().ports().findByName("p"), nullptr);
}

// What the app still holds when its run ends is named; the host's own deliveries are not, and a
// launch request whose reply is still due is named as deliberate.
TEST_F(LeftoversTest, NameWhatTheAppStillHolds) {
  platform().post([] {}, 5000, "channel");
  platform().post([] {}, 0);
  EXPECT_EQ(leftovers(), std::vector<std::string>{});

  platform().packages().install({"silent.app", "silent.app", "svcapp", true});
  auto silent = std::make_shared<morvik_test::FakeApp>();
  silent->answers = false;
  platform().registerApp("silent.app", silent);
  MvAppControlPtr request = mvCreateAppControl();
  app_control_set_app_id(request.get(), "silent.app");
  ASSERT_EQ(app_control_send_launch_request(request.get(), nullptr, nullptr),
            APP_CONTROL_ERROR_NONE);
  request.reset();
  ASSERT_TRUE(runLoopUntil([&] { return silent->heldReply != nullptr; }, 5));
  EXPECT_EQ(leftovers(),
            std::vector<std::string>{"launch request: to silent.app, its reply still due (ok)"});
  silent->heldReply.reset();

  int user = 0;
  ASSERT_GT(message_port_register_trusted_local_port("morvik::port", message, &user), 0);
  MvGSourceId timeout(g_timeout_add(
      30000, [](gpointer) { return G_SOURCE_REMOVE; }, nullptr));
  MvEcoreTimerPtr timer(ecore_timer_add(
      2.0, [](void*) { return ECORE_CALLBACK_CANCEL; }, nullptr));
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_restore_record_set_completed_cb(completed, &user),
            TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(leftovers(), (std::vector<std::string>{
                             "message port: morvik::port",
                             "GLib source: " + std::to_string(timeout.get()),
                             "Ecore timer: 1",
                             "cloud callback: restore completion",
                             "cloud library: initialised (1 deinitialise calls missing)",
                         }));

  timeout.reset();
  timer.reset();
  host::cloud::reset();
  message_port_unregister_trusted_local_port(platform().ports().findByName("morvik::port")->id);
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

}  // namespace
