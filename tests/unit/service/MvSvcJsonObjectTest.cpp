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
  std::string text = "(none)";
  object.getJsonMessage(text);
  return text;
}

class MvSvcJsonObjectTest : public morvik_test::JsonDocumentFixture {};

// Callers set their defaults first: whatever cannot be read leaves them as they were.
TEST_F(MvSvcJsonObjectTest, WhatCannotBeReadLeavesOutArgumentsAsTheyWere) {
  MvSvcJsonObject empty;
  MvSvcJsonObject object =
      objectFrom(R"({"s":"x","i":5,"d":1.5,"b":true,"n":null,"o":{"k":"v"},"l":["x"]})");
  const struct {
    MvSvcJsonObject* object;
    std::vector<const char*> keys;
    bool strings, integers, booleans;
  } cases[] = {
      {&empty, {"s", "i", "b", "o", "l"}, true, true, true},
      {&object, {"missing"}, true, true, true},
      {&object, {"i", "d", "b", "n", "o", "l"}, true, false, false},
      {&object, {"s", "d", "b", "n", "o", "l"}, false, true, false},
      {&object, {"s", "i", "d", "n", "o", "l"}, false, false, true},
  };
  for (const auto& c : cases) {
    for (const char* key : c.keys) {
      SCOPED_TRACE(key);
      std::string text = "kept";
      int number = 7;
      bool flag = true;
      if (c.strings)
        c.object->getStringValue(key, text);
      if (c.integers)
        c.object->getIntegerValue(key, number);
      if (c.booleans)
        c.object->getBooleanValue(key, flag);
      EXPECT_TRUE(flag);
      EXPECT_EQ(text, "kept");
      EXPECT_EQ(number, 7);
    }
  }
  MvSvcJsonObject nested = newObject();
  JsonObject* held = nested.getJsonObject();
  std::list<MvSvcJsonObject> objects(1);
  for (MvSvcJsonObject* target : {&empty, &object}) {
    EXPECT_FALSE(target->hasMember("missing"));
    target->getObjectValue("missing", nested);
    target->getArrayObject("missing", objects);
  }
  EXPECT_EQ(nested.getJsonObject(), held);
  EXPECT_EQ(objects.size(), 1u);

  // An empty wrapper writes nothing and has no text.
  empty.addStringMember("a", "x");
  empty.addIntegerMember("i", 1);
  empty.addObjectMember("o", nested);
  empty.addArrayMember("l", objects);
  EXPECT_EQ(empty.getJsonObject(), nullptr);
  EXPECT_EQ(textOf(empty), "(none)");
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonObjectTest, WrittenMembersReadBackAndSerialiseInOrder) {
  MvSvcJsonObject object = newObject();
  object.addStringMember("a", "x");
  object.addStringMember("b", "y");
  EXPECT_EQ(textOf(object), R"({"a":"x","b":"y"})");
  object.addStringMember("a", "z");
  object.addIntegerMember("min", INT_MIN);
  object.addIntegerMember("max", INT_MAX);
  object.addBooleanMember("no", false);
  object.removeMember("b");
  object.removeMember("missing");
  int min = 0, max = 0;
  bool no = true;
  std::string a;
  object.getIntegerValue("min", min);
  object.getIntegerValue("max", max);
  object.getBooleanValue("no", no);
  object.getStringValue("a", a);
  EXPECT_EQ(min, INT_MIN);
  EXPECT_EQ(max, INT_MAX);
  EXPECT_FALSE(no);
  EXPECT_EQ(a, "z");
  EXPECT_EQ(textOf(object), R"({"a":"z","min":-2147483648,"max":2147483647,"no":false})");

  // json-glib reads 64 bits; the wrapper keeps the low 32.
  MvSvcJsonObject wide = objectFrom(R"({"above":4294967297,"below":-4294967297})");
  int above = 0, below = 0;
  wide.getIntegerValue("above", above);
  wide.getIntegerValue("below", below);
  EXPECT_EQ(above, 1);
  EXPECT_EQ(below, -1);
}

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
  }
  json_object_set_string_member(replaced, "alive", "yes");
  EXPECT_EQ(json_object_get_size(shared), 1u);
  json_object_unref(shared);
  json_object_unref(replaced);

  // Held only by the wrapper: set again it survives; dropped by an assignment it is freed.
  MvSvcJsonObject only = newObject();
  only.setJsonObject(only.getJsonObject());
  only.addStringMember("a", "x");
  MvSvcJsonObject target = newObject();
  target = only;
  EXPECT_EQ(textOf(target), R"({"a":"x"})");
}

TEST_F(MvSvcJsonObjectTest, NestedObjectsAreSharedWithTheParent) {
  MvSvcJsonObject parent = newObject();
  MvSvcJsonObject child = newObject();
  parent.addObjectMember("child", child);
  child.addStringMember("k", "v");
  MvSvcJsonObject read;
  parent.getObjectValue("child", read);
  read.addStringMember("w", "x");
  EXPECT_EQ(textOf(parent), R"({"child":{"k":"v","w":"x"}})");

  parent.addStringMember("text", "s");
  MvSvcJsonObject notObject = newObject();
  parent.getObjectValue("text", notObject);
  EXPECT_EQ(notObject.getJsonObject(), nullptr);
}

TEST_F(MvSvcJsonObjectTest, ArraysBecomeListsOfSharedWrappersAndBack) {
  MvSvcJsonObject object =
      objectFrom(R"({"mixed":[{"a":"x"},5,null],"none":[],"text":"s","null":null})");
  MvSvcJsonObject before = newObject();
  std::list<MvSvcJsonObject> objects{before};
  for (const char* key : {"none", "text", "null", "mixed"})
    object.getArrayObject(key, objects);
  ASSERT_EQ(objects.size(), 4u);
  auto it = objects.begin();
  EXPECT_EQ((it++)->getJsonObject(), before.getJsonObject());
  MvSvcJsonObject& element = *it++;
  EXPECT_EQ((it++)->getJsonObject(), nullptr);
  EXPECT_EQ((it++)->getJsonObject(), nullptr);
  element.addStringMember("b", "y");
  EXPECT_EQ(textOf(object),
            R"({"mixed":[{"a":"x","b":"y"},5,null],"none":[],"text":"s","null":null})");
  EXPECT_EQ(messages(), (Messages{"E json_object_get_array_member(text) failed.",
                                  "E json_object_get_array_member(null) failed."}));

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
