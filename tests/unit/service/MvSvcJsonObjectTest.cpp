#include "MvSvcJsonObject.h"

#include <gtest/gtest.h>

#include <climits>
#include <list>
#include <string>
#include <vector>

#include "JsonDocumentFixture.h"

namespace {

using Messages = std::vector<std::string>;

// A wrapper holding the only reference to a new empty object.
MvSvcJsonObject newObject() {
  JsonObject* object = json_object_new();
  MvSvcJsonObject wrapper;
  wrapper.setJsonObject(object);
  json_object_unref(object);
  return wrapper;
}

// A wrapper holding the only reference to the object parsed from `text`.
MvSvcJsonObject objectFrom(const char* text) {
  JsonNode* node = json_from_string(text, nullptr);
  MvSvcJsonObject wrapper;
  wrapper.setJsonObject(json_node_get_object(node));
  json_node_unref(node);
  return wrapper;
}

std::string textOf(MvSvcJsonObject& object) {
  std::string text;
  object.getJsonMessage(text);
  return text;
}

class MvSvcJsonObjectTest : public morvik_test::JsonDocumentFixture {};

TEST_F(MvSvcJsonObjectTest, EmptyWrapperFindsNothingAndChangesNothing) {
  MvSvcJsonObject empty;
  std::string text = "kept";
  int number = 7;
  bool flag = true;
  MvSvcJsonObject nested = newObject();
  JsonObject* nestedObject = nested.getJsonObject();
  std::list<MvSvcJsonObject> objects(1);

  EXPECT_FALSE(empty.hasMember("a"));
  empty.getStringValue("a", text);
  empty.getIntegerValue("a", number);
  empty.getBooleanValue("a", flag);
  empty.getObjectValue("a", nested);
  empty.getArrayObject("a", objects);
  empty.addStringMember("a", "x");
  empty.addBooleanMember("b", false);
  empty.addIntegerMember("i", 1);
  empty.addObjectMember("o", nested);
  empty.addArrayMember("l", objects);
  empty.removeMember("a");
  empty.getJsonMessage(text);

  EXPECT_EQ(empty.getJsonObject(), nullptr);
  EXPECT_EQ(text, "kept");
  EXPECT_EQ(number, 7);
  EXPECT_TRUE(flag);
  EXPECT_EQ(nested.getJsonObject(), nestedObject);
  EXPECT_EQ(objects.size(), 1u);
  EXPECT_EQ(MvSvcJsonObject(empty).getJsonObject(), nullptr);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonObjectTest, MissingMembersLeaveOutArgumentsAsTheyWere) {
  MvSvcJsonObject object = objectFrom(R"({"s":"x","i":5,"b":false,"o":{},"l":[{}]})");
  std::string text = "kept";
  int number = 7;
  bool flag = true;
  MvSvcJsonObject nested = newObject();
  JsonObject* nestedObject = nested.getJsonObject();
  std::list<MvSvcJsonObject> objects;

  EXPECT_FALSE(object.hasMember("missing"));
  object.getStringValue("missing", text);
  object.getIntegerValue("missing", number);
  object.getBooleanValue("missing", flag);
  object.getObjectValue("missing", nested);
  object.getArrayObject("missing", objects);

  EXPECT_EQ(text, "kept");
  EXPECT_EQ(number, 7);
  EXPECT_TRUE(flag);
  EXPECT_EQ(nested.getJsonObject(), nestedObject);
  EXPECT_TRUE(objects.empty());
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonObjectTest, MembersOfAnotherTypeReadAsAbsent) {
  MvSvcJsonObject object =
      objectFrom(R"({"s":"x","i":5,"d":1.5,"b":true,"n":null,"o":{"k":"v"},"l":["x"]})");
  for (const char* key : {"i", "d", "b", "n", "o", "l"}) {
    std::string text = "kept";
    object.getStringValue(key, text);
    EXPECT_EQ(text, "kept") << key;
  }
  for (const char* key : {"s", "d", "b", "n", "o", "l"}) {
    int number = 7;
    object.getIntegerValue(key, number);
    EXPECT_EQ(number, 7) << key;
  }
  for (const char* key : {"s", "i", "d", "n", "o", "l"}) {
    for (bool initial : {false, true}) {
      bool flag = initial;
      object.getBooleanValue(key, flag);
      EXPECT_EQ(flag, initial) << key;
    }
  }

  std::string text;
  int number = 0;
  bool flag = false;
  object.getStringValue("s", text);
  object.getIntegerValue("i", number);
  object.getBooleanValue("b", flag);
  EXPECT_EQ(text, "x");
  EXPECT_EQ(number, 5);
  EXPECT_TRUE(flag);
}

TEST_F(MvSvcJsonObjectTest, WrittenMembersReadBackAndSerialiseInOrder) {
  MvSvcJsonObject object = newObject();
  object.addStringMember("a", "x");
  object.addStringMember("b", "y");
  EXPECT_EQ(textOf(object), R"({"a":"x","b":"y"})");

  object.addStringMember("a", "z");
  EXPECT_EQ(textOf(object), R"({"a":"z","b":"y"})");

  object.addIntegerMember("minus", -1);
  object.addIntegerMember("min", INT_MIN);
  object.addIntegerMember("max", INT_MAX);
  object.addBooleanMember("no", false);
  object.addBooleanMember("yes", true);
  int minus = 0, min = 0, max = 0;
  bool no = true, yes = false;
  object.getIntegerValue("minus", minus);
  object.getIntegerValue("min", min);
  object.getIntegerValue("max", max);
  object.getBooleanValue("no", no);
  object.getBooleanValue("yes", yes);
  EXPECT_EQ(minus, -1);
  EXPECT_EQ(min, INT_MIN);
  EXPECT_EQ(max, INT_MAX);
  EXPECT_FALSE(no);
  EXPECT_TRUE(yes);
  EXPECT_EQ(textOf(object), R"({"a":"z","b":"y","minus":-1,"min":-2147483648,)"
                            R"("max":2147483647,"no":false,"yes":true})");

  object.removeMember("b");
  object.removeMember("missing");
  EXPECT_FALSE(object.hasMember("b"));
  EXPECT_EQ(textOf(object), R"({"a":"z","minus":-1,"min":-2147483648,)"
                            R"("max":2147483647,"no":false,"yes":true})");
}

TEST_F(MvSvcJsonObjectTest, WideIntegersAreCutToTheirLow32Bits) {
  MvSvcJsonObject object =
      objectFrom(R"({"above":4294967297,"below":-4294967297,"half":2147483648})");
  int above = 0, below = 0, half = 0;
  object.getIntegerValue("above", above);
  object.getIntegerValue("below", below);
  object.getIntegerValue("half", half);
  EXPECT_EQ(above, 1);
  EXPECT_EQ(below, -1);
  EXPECT_EQ(half, INT_MIN);
}

TEST_F(MvSvcJsonObjectTest, CopiesAndAssignmentsShareOneObject) {
  MvSvcJsonObject first = newObject();
  MvSvcJsonObject copied(first);
  copied.addStringMember("a", "x");
  EXPECT_TRUE(first.hasMember("a"));
  EXPECT_EQ(textOf(first), R"({"a":"x"})");
  EXPECT_EQ(textOf(copied), textOf(first));

  MvSvcJsonObject assigned = newObject();
  assigned = first;
  assigned.addStringMember("b", "y");
  EXPECT_EQ(assigned.getJsonObject(), first.getJsonObject());
  EXPECT_EQ(textOf(first), R"({"a":"x","b":"y"})");

  MvSvcJsonObject& self = assigned;
  assigned = self;
  EXPECT_EQ(assigned.getJsonObject(), first.getJsonObject());

  assigned = MvSvcJsonObject();
  EXPECT_EQ(assigned.getJsonObject(), nullptr);
  EXPECT_EQ(textOf(first), R"({"a":"x","b":"y"})");
}

// JsonObject hides its reference count, so we keep a reference of our own through every wrapper
// operation: a reference dropped too often shows as a use after free under ASan, one kept too
// long as a leak under LSan.
TEST_F(MvSvcJsonObjectTest, WrappersTakeAndReleaseExactlyTheirOwnReference) {
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
    a.setJsonObject(nullptr);
    EXPECT_EQ(c.getJsonObject(), shared);
    std::list<MvSvcJsonObject> copies(3, c);
    copies.front().addStringMember("from", "copy");
  }
  json_object_set_string_member(replaced, "alive", "yes");
  EXPECT_EQ(json_object_get_size(shared), 1u);
  EXPECT_STREQ(json_object_get_string_member(shared, "from"), "copy");
  json_object_unref(shared);
  json_object_unref(replaced);
}

// Here the wrapper holds the only reference: re-setting the same object must not free it, and
// an assignment must free the object it drops (LSan reports it otherwise).
TEST_F(MvSvcJsonObjectTest, ObjectHeldOnlyByTheWrapperSurvivesBeingSetAgain) {
  MvSvcJsonObject only = newObject();
  only.setJsonObject(only.getJsonObject());
  only.addStringMember("a", "x");
  EXPECT_EQ(textOf(only), R"({"a":"x"})");

  MvSvcJsonObject target = newObject();
  target.addStringMember("dropped", "yes");
  target = only;
  EXPECT_EQ(textOf(target), R"({"a":"x"})");
}

TEST_F(MvSvcJsonObjectTest, NestedObjectsAreSharedWithTheParent) {
  MvSvcJsonObject parent = newObject();
  MvSvcJsonObject child = newObject();
  parent.addObjectMember("child", child);
  child.addStringMember("k", "v");
  EXPECT_EQ(textOf(parent), R"({"child":{"k":"v"}})");

  MvSvcJsonObject read;
  parent.getObjectValue("child", read);
  EXPECT_EQ(read.getJsonObject(), child.getJsonObject());
  read.addStringMember("w", "x");
  EXPECT_EQ(textOf(parent), R"({"child":{"k":"v","w":"x"}})");

  parent.addStringMember("text", "s");
  MvSvcJsonObject notObject = newObject();
  parent.getObjectValue("text", notObject);
  EXPECT_EQ(notObject.getJsonObject(), nullptr);

  parent.addObjectMember("none", MvSvcJsonObject());
  EXPECT_EQ(textOf(parent), R"({"child":{"k":"v","w":"x"},"text":"s","none":null})");
}

TEST_F(MvSvcJsonObjectTest, ArrayElementsAreAppendedAsSharedWrappers) {
  MvSvcJsonObject object = objectFrom(R"({"mixed":[{"a":"x"},5,null],"none":[]})");
  MvSvcJsonObject before1 = newObject();
  MvSvcJsonObject before2 = newObject();
  std::list<MvSvcJsonObject> objects{before1, before2};

  object.getArrayObject("none", objects);
  EXPECT_EQ(objects.size(), 2u);

  object.getArrayObject("mixed", objects);
  ASSERT_EQ(objects.size(), 5u);
  auto it = objects.begin();
  EXPECT_EQ((it++)->getJsonObject(), before1.getJsonObject());
  EXPECT_EQ((it++)->getJsonObject(), before2.getJsonObject());
  MvSvcJsonObject& element = *it++;
  std::string a;
  element.getStringValue("a", a);
  EXPECT_EQ(a, "x");
  EXPECT_EQ((it++)->getJsonObject(), nullptr);
  EXPECT_EQ((it++)->getJsonObject(), nullptr);

  element.addStringMember("b", "y");
  EXPECT_EQ(textOf(object), R"({"mixed":[{"a":"x","b":"y"},5,null],"none":[]})");
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonObjectTest, MemberThatIsNotAnArrayIsLoggedAndAppendsNothing) {
  MvSvcJsonObject object = objectFrom(R"({"text":"s","null":null,"object":{"a":[]}})");
  std::list<MvSvcJsonObject> objects(1);
  object.getArrayObject("text", objects);
  object.getArrayObject("null", objects);
  object.getArrayObject("object", objects);
  EXPECT_EQ(objects.size(), 1u);
  EXPECT_EQ(messages(), (Messages{"E json_object_get_array_member(text) failed.",
                                  "E json_object_get_array_member(null) failed.",
                                  "E json_object_get_array_member(object) failed."}));
}

TEST_F(MvSvcJsonObjectTest, ListsBecomeArrayMembersInListOrder) {
  MvSvcJsonObject root = newObject();
  root.addArrayMember("empty", {});
  std::list<MvSvcJsonObject> items{newObject(), MvSvcJsonObject(), newObject()};
  items.front().addStringMember("n", "1");
  items.back().addStringMember("n", "3");
  root.addArrayMember("items", items);
  items.front().addStringMember("later", "seen");
  items.clear();
  EXPECT_EQ(textOf(root), R"({"empty":[],"items":[{"n":"1","later":"seen"},null,{"n":"3"}]})");
}

}  // namespace
