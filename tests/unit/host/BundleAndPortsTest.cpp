#include <bundle.h>
#include <message_port.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeApp.h"
#include "PlatformFixture.h"
#include "host/Bundle.h"

namespace {

using host::BoundaryEvent;
using morvik_test::FakeApp;

const char* const kWatchface = "com.talvoro.watchface-service";
const char* const kWatchfacePort = "watchface-service::localport";

TEST(BundleTest, KeysAreUniqueAndKeepTheirOrder) {
  host::BundlePtr b(bundle_create());
  ASSERT_TRUE(b);
  EXPECT_EQ(bundle_add_str(b.get(), "operation", "talvoro_cloud_restore"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_add_str(b.get(), "type", "watch"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_add_str(b.get(), "type", "image"), BUNDLE_ERROR_KEY_EXISTS);
  EXPECT_EQ(bundle_add_str(b.get(), "", "x"), BUNDLE_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(bundle_get_count(b.get()), 2);

  char* value = nullptr;
  EXPECT_EQ(bundle_get_str(b.get(), "type", &value), BUNDLE_ERROR_NONE);
  EXPECT_STREQ(value, "watch");
  EXPECT_EQ(bundle_get_str(b.get(), "pkgid", &value), BUNDLE_ERROR_KEY_NOT_AVAILABLE);

  host::BundlePtr copy(bundle_dup(b.get()));
  EXPECT_EQ(bundle_del(b.get(), "operation"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_del(b.get(), "operation"), BUNDLE_ERROR_KEY_NOT_AVAILABLE);
  EXPECT_EQ(copy->keyValues(),
            (host::KeyValues{{"operation", "talvoro_cloud_restore"}, {"type", "watch"}}));
}

// What the device's public headers and libraries do, where the host once differed.
TEST(BundleTest, ErrorValuesAndValuePointersAreTheDevices) {
  EXPECT_EQ(TIZEN_ERROR_MESSAGE_PORT, -0x01130000);
  EXPECT_EQ(MESSAGE_PORT_ERROR_PORT_NOT_FOUND, -0x01130000 | 0x01);
  EXPECT_EQ(MESSAGE_PORT_ERROR_CERTIFICATE_NOT_MATCH, -0x01130000 | 0x02);
  EXPECT_EQ(MESSAGE_PORT_ERROR_MAX_EXCEEDED, -0x01130000 | 0x03);
  EXPECT_EQ(MESSAGE_PORT_ERROR_RESOURCE_UNAVAILABLE, -0x01130000 | 0x04);
  EXPECT_EQ(BUNDLE_ERROR_KEY_EXISTS, TIZEN_ERROR_BUNDLE | 0x01);
  EXPECT_EQ(TIZEN_ERROR_BUNDLE, -0x01180000);

  // A value stays where it is while other keys are added.
  host::BundlePtr b(bundle_create());
  ASSERT_EQ(bundle_add_str(b.get(), "type", "watch"), BUNDLE_ERROR_NONE);
  char* value = nullptr;
  ASSERT_EQ(bundle_get_str(b.get(), "type", &value), BUNDLE_ERROR_NONE);
  for (int i = 0; i < 64; ++i)
    ASSERT_EQ(bundle_add_str(b.get(), ("key" + std::to_string(i)).c_str(), "v"), BUNDLE_ERROR_NONE);
  char* again = nullptr;
  ASSERT_EQ(bundle_get_str(b.get(), "type", &again), BUNDLE_ERROR_NONE);
  EXPECT_EQ(again, value);
  EXPECT_STREQ(value, "watch");
}

struct Inbox {
  std::vector<host::KeyValues> messages;
  std::vector<std::string> senders;
  int portId = 0;
};

void collect(int portId,
             const char* remoteAppId,
             const char*,
             bool trusted,
             bundle* message,
             void* data) {
  auto* inbox = static_cast<Inbox*>(data);
  EXPECT_TRUE(trusted);
  inbox->portId = portId;
  inbox->senders.push_back(remoteAppId);
  inbox->messages.push_back(message->keyValues());
}

class MessagePortTest : public morvik_test::PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    platform().packages().install({kWatchface, kWatchface, "svcapp", true});
    watchface_ = std::make_shared<FakeApp>(std::vector<std::string>{kWatchfacePort});
    platform().registerApp(kWatchface, watchface_);
  }

  std::shared_ptr<FakeApp> watchface_;
};

TEST_F(MessagePortTest, PeerMessagesReachTheLocalPortLater) {
  Inbox inbox;
  int id = message_port_register_trusted_local_port("morvik-service::localport", collect, &inbox);
  ASSERT_GT(id, 0);
  EXPECT_EQ(message_port_register_trusted_local_port("morvik-service::localport", collect, &inbox),
            id);

  platform().sendToApp(kWatchface, kWatchfacePort, "morvik-service::localport",
                       {{"type", "watch"}, {"pkgid", "p"}, {"result_xml", "<x/>"}});
  EXPECT_TRUE(inbox.messages.empty());
  ASSERT_TRUE(runLoopUntil([&] { return !inbox.messages.empty(); }, 5));
  EXPECT_EQ(inbox.portId, id);
  EXPECT_EQ(inbox.senders[0], kWatchface);
  EXPECT_EQ(inbox.messages[0],
            (host::KeyValues{{"type", "watch"}, {"pkgid", "p"}, {"result_xml", "<x/>"}}));

  EXPECT_EQ(message_port_unregister_trusted_local_port(id), MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(message_port_unregister_trusted_local_port(id), MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  platform().sendToApp(kWatchface, kWatchfacePort, "morvik-service::localport",
                       {{"message", "backup_finished"}});
  runLoopFor(0.1);
  EXPECT_EQ(inbox.messages.size(), 1u);
  EXPECT_EQ(platform().record().ofKind(BoundaryEvent::Kind::kMessageDropped).size(), 1u);
}

TEST_F(MessagePortTest, SentMessagesReachThePeerLaterWithTheirKeysInOrder) {
  bundle* message = bundle_create();
  bundle_add_str(message, "operation", "talvoro_cloud_restore");
  bundle_add_str(message, "type", "image");
  bundle_add_str(message, "bg_type", "photo");
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, kWatchfacePort, message),
            MESSAGE_PORT_ERROR_NONE);
  // The bundle stays the sender's: freeing it at once must not lose the message.
  bundle_free(message);
  EXPECT_TRUE(watchface_->messages.empty());

  ASSERT_TRUE(runLoopUntil([&] { return !watchface_->messages.empty(); }, 5));
  const FakeApp::Message& got = watchface_->messages[0];
  EXPECT_EQ(got.port, kWatchfacePort);
  EXPECT_EQ(got.fromAppId, kSelfAppId);
  EXPECT_EQ(got.entries,
            (host::KeyValues{
                {"operation", "talvoro_cloud_restore"}, {"type", "image"}, {"bg_type", "photo"}}));
  auto sent = platform().record().ofKind(BoundaryEvent::Kind::kMessageSent);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].data, got.entries);
}

TEST_F(MessagePortTest, MessagesToUnknownAppsOrPortsFail) {
  host::BundlePtr message(bundle_create());
  bundle_add_str(message.get(), "message", "restore_start");
  EXPECT_EQ(message_port_send_trusted_message("com.example.none", kWatchfacePort, message.get()),
            MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, "other::port", message.get()),
            MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, kWatchfacePort, nullptr),
            MESSAGE_PORT_ERROR_INVALID_PARAMETER);
  runLoopFor(0.05);
  EXPECT_TRUE(watchface_->messages.empty());
}

}  // namespace
