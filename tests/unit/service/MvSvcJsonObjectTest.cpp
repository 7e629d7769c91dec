#include "MvSvcJsonObject.h"

#include <gtest/gtest.h>

#include <climits>
#include <list>
#include <string>
#include <vector>

#include "JsonDocumentFixture.h"

namespace {

// The builder and the parser use the wrapper for strings and arrays (see their tests); here is
// what they do not reach: sharing and references, the other member types, empty wrappers.
class MvSvcJsonObjectTest : public morvik_test::JsonDocumentFixture {
 protected:
  static std::string textOf(MvSvcJsonObject& object) {
    std::string text = "(none)";
    object.getJsonMessage(text);
    return text;
  }
};

// JsonObject hides its reference count, so we keep a reference of our own through every wrapper
// operation: a reference dropped too often shows as a use after free under ASan, one kept too
// long as a leak under LSan.
TEST_F(MvSvcJsonObjectTest, CopiesShareOneObjectAndEachHoldsExactlyOneReference) {
  JsonObject* shared = json_object_new();
  JsonObject* replaced = json_object_new();
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
  json_object_unref(shared);
  json_object_unref(replaced);
}

TEST_F(MvSvcJsonObjectTest, OtherTypesReadBackAndForeignOnesLeaveTheirDefault) {
  JsonNode* node = json_from_string(R"({"s":"x","wide":4294967297,"d":1.5,"n":null})", nullptr);
  MvSvcJsonObject object;
  object.setJsonObject(json_node_get_object(node));
  json_node_unref(node);
  object.addIntegerMember("min", INT_MIN);
  object.addBooleanMember("no", false);
  object.removeMember("d");
  EXPECT_EQ(textOf(object), R"({"s":"x","wide":4294967297,"n":null,"min":-2147483648,)"
                            R"("no":false})");
  int min = 0, wide = 0, number = 7;
  bool no = true, flag = true;
  object.getIntegerValue("min", min);
  object.getIntegerValue("wide", wide);  // json-glib reads 64 bits; the low 32 are kept
  object.getBooleanValue("no", no);
  EXPECT_EQ(min, INT_MIN);
  EXPECT_EQ(wide, 1);
  EXPECT_FALSE(no);
  for (const char* key : {"s", "n", "missing"}) {
    object.getIntegerValue(key, number);
    object.getBooleanValue(key, flag);
  }
  EXPECT_EQ(number, 7);
  EXPECT_TRUE(flag);

  // An empty wrapper finds nothing and writes nothing.
  MvSvcJsonObject empty;
  std::string text = "kept";
  std::list<MvSvcJsonObject> objects(1);
  empty.getStringValue("s", text);
  empty.getArrayObject("l", objects);
  empty.addStringMember("a", "x");
  empty.addArrayMember("l", objects);
  EXPECT_FALSE(empty.hasMember("a"));
  EXPECT_EQ(text, "kept");
  EXPECT_EQ(objects.size(), 1u);
  EXPECT_EQ(textOf(empty), "(none)");
  EXPECT_EQ(messages(), std::vector<std::string>{});
}

}  // namespace
