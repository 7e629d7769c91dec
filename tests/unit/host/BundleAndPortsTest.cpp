#include <bundle.h>
#include <message_port.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeApp.h"
#include "MvHandles.h"
#include "PlatformFixture.h"
#include "host/Bundle.h"

namespace {

using host::BoundaryEvent;
using morvik_test::FakeApp;

const char* const kWatchface = "com.talvoro.watchface-service";
const char* const kWatchfacePort = "watchface-service::localport";
const char* const kOwnPort = "morvik-service::localport";

// Unlike app-control extras, a bundle keeps an empty value: a restore may send one.
TEST(BundleTest, KeysAreUniqueKeepTheirOrderAndTheirValuesStayPut) {
  MvBundlePtr b(bundle_create());
  ASSERT_TRUE(b);
  EXPECT_EQ(bundle_add_str(b.get(), "operation", "talvoro_cloud_restore"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_add_str(b.get(), "type", "watch"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_add_str(b.get(), "type", "image"), BUNDLE_ERROR_KEY_EXISTS);
  EXPECT_EQ(bundle_add_str(b.get(), "", "x"), BUNDLE_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(bundle_add_str(b.get(), "result_xml", ""), BUNDLE_ERROR_NONE);

  char* value = nullptr;
  EXPECT_EQ(bundle_get_str(b.get(), "pkgid", &value), BUNDLE_ERROR_KEY_NOT_AVAILABLE);
  ASSERT_EQ(bundle_get_str(b.get(), "type", &value), BUNDLE_ERROR_NONE);
  for (int i = 0; i < 64; ++i)
    ASSERT_EQ(bundle_add_str(b.get(), ("key" + std::to_string(i)).c_str(), "v"), BUNDLE_ERROR_NONE);
  EXPECT_STREQ(value, "watch");

  MvBundlePtr copy(bundle_dup(b.get()));
  EXPECT_EQ(bundle_del(b.get(), "operation"), BUNDLE_ERROR_NONE);
  EXPECT_EQ(bundle_del(b.get(), "operation"), BUNDLE_ERROR_KEY_NOT_AVAILABLE);
  ASSERT_EQ(bundle_get_count(copy.get()), 67);
  host::KeyValues copied = copy->keyValues();
  copied.resize(3);
  EXPECT_EQ(copied,
            (host::KeyValues{
                {"operation", "talvoro_cloud_restore"}, {"type", "watch"}, {"result_xml", ""}}));
}

struct Inbox {
  std::vector<host::KeyValues> messages;
  std::vector<std::string> senders;
  int portId = 0;
};

void collect(int portId, const char* remoteAppId, const char*, bool, bundle* message, void* data) {
  auto* inbox = static_cast<Inbox*>(data);
  inbox->portId = portId;
  inbox->senders.push_back(remoteAppId);
  inbox->messages.push_back(message->keyValues());
}

using MessagePortTest = morvik_test::PlatformFixture;

// The service registers its port again for each flow: the peers keep sending to the same ID.
TEST_F(MessagePortTest, MessagesCrossLaterOnlyToKnownPortsAndUnderOneIdPerName) {
  platform().packages().install({kWatchface, kWatchface, "svcapp", true});
  auto watchface = std::make_shared<FakeApp>(std::vector<std::string>{kWatchfacePort});
  platform().registerApp(kWatchface, watchface);
  Inbox first, second;
  int id = message_port_register_trusted_local_port(kOwnPort, collect, &first);
  ASSERT_GT(id, 0);
  EXPECT_EQ(message_port_register_trusted_local_port(kOwnPort, collect, &second), id);

  platform().sendToApp(kWatchface, kWatchfacePort, kOwnPort,
                       {{"type", "watch"}, {"pkgid", "p"}, {"result_xml", "<x/>"}});
  EXPECT_TRUE(second.messages.empty());
  ASSERT_TRUE(runLoopUntil([&] { return !second.messages.empty(); }, 5));
  EXPECT_TRUE(first.messages.empty());
  EXPECT_EQ(second.portId, id);
  EXPECT_EQ(second.senders[0], kWatchface);
  EXPECT_EQ(second.messages[0],
            (host::KeyValues{{"type", "watch"}, {"pkgid", "p"}, {"result_xml", "<x/>"}}));

  EXPECT_EQ(message_port_unregister_trusted_local_port(id), MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(message_port_unregister_trusted_local_port(id), MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  platform().sendToApp(kWatchface, kWatchfacePort, kOwnPort, {{"message", "backup_finished"}});
  runLoopFor(0.1);
  EXPECT_EQ(second.messages.size(), 1u);
  EXPECT_EQ(platform().record().ofKind(BoundaryEvent::Kind::kMessageDropped).size(), 1u);

  // The other way: only to a known peer's port, and later.
  MvBundlePtr message(bundle_create());
  bundle_add_str(message.get(), "operation", "talvoro_cloud_restore");
  bundle_add_str(message.get(), "type", "image");
  EXPECT_EQ(message_port_send_trusted_message("com.example.none", kWatchfacePort, message.get()),
            MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, "other::port", message.get()),
            MESSAGE_PORT_ERROR_PORT_NOT_FOUND);
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, kWatchfacePort, nullptr),
            MESSAGE_PORT_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(message_port_send_trusted_message(kWatchface, kWatchfacePort, message.get()),
            MESSAGE_PORT_ERROR_NONE);
  // The bundle stays the sender's: freeing it at once must not lose the message.
  message.reset();
  EXPECT_TRUE(watchface->messages.empty());
  runLoopFor(0.05);
  ASSERT_EQ(watchface->messages.size(), 1u);
  EXPECT_EQ(watchface->messages[0].fromAppId, kSelfAppId);
  EXPECT_EQ(watchface->messages[0].entries,
            (host::KeyValues{{"operation", "talvoro_cloud_restore"}, {"type", "image"}}));
}

}  // namespace
