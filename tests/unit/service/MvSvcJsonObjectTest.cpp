#include "MvSvcJsonObject.h"

#include <gtest/gtest.h>

#include <list>
#include <string>

#include "JsonDocumentFixture.h"
#include "MvHandles.h"

namespace {

// The builder and the parser use the wrapper for its members and arrays (see their tests); here
// is what they do not reach: copies, assignments and nested objects.
class MvSvcJsonObjectTest : public morvik_test::JsonDocumentFixture {};

// JsonObject hides its reference count, so we keep a reference of our own through every wrapper
// operation: a reference dropped too often shows as a use after free under ASan, one kept too
// long as a leak under LSan.
TEST_F(MvSvcJsonObjectTest, CopiesShareOneObjectAndEachHoldsExactlyOneReference) {
  MvJsonObjectPtr ownShared(json_object_new());
  MvJsonObjectPtr ownReplaced(json_object_new());
  JsonObject* shared = ownShared.get();
  JsonObject* replaced = ownReplaced.get();
  {
    MvSvcJsonObject a;
    a.setJsonObject(shared);
    a.setJsonObject(shared);
    MvSvcJsonObject b(a);
    MvSvcJsonObject c;
    c.setJsonObject(replaced);
    c = b;
    MvSvcJsonObject& self = c;
    c = self;
    b = MvSvcJsonObject();
    EXPECT_EQ(b.getJsonObject(), nullptr);
    a.setJsonObject(nullptr);
    EXPECT_EQ(c.getJsonObject(), shared);
    std::list<MvSvcJsonObject> copies(3, c);
    copies.front().addStringMember("from", "copy");
    EXPECT_TRUE(c.hasMember("from"));

    // A nested object is shared with its parent both ways.
    MvSvcJsonObject child;
    child.setJsonObject(replaced);
    c.addObjectMember("child", child);
    MvSvcJsonObject read;
    c.getObjectValue("child", read);
    read.addIntegerMember("n", -1);
    c.getObjectValue("from", read);
    EXPECT_EQ(read.getJsonObject(), nullptr);
  }
  EXPECT_EQ(json_object_get_int_member(replaced, "n"), -1);
  EXPECT_EQ(json_object_get_size(shared), 2u);

  // Held by the wrapper alone, an object set again survives.
  MvSvcJsonObject only;
  only.setJsonObject(MvJsonObjectPtr(json_object_new()).get());
  only.setJsonObject(only.getJsonObject());
  only.addStringMember("a", "x");
  EXPECT_TRUE(only.hasMember("a"));
}

}  // namespace
