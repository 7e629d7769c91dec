#include "MvJsonNesting.h"

#include <gtest/gtest.h>
#include <json-glib/json-glib.h>
#include <pthread.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "MvHandles.h"

namespace {

// Everything json-glib does by recursion to a tree, on `text`.
void throughJsonGlib(const std::string& text) {
  g_autoptr(JsonParser) parser = json_parser_new();
  ASSERT_TRUE(json_parser_load_from_data(parser, text.data(), -1, nullptr));
  JsonNode* root = json_parser_get_root(parser);
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_root(generator, root);
  MvGCharPtr compact(json_generator_to_data(generator, nullptr));
  json_generator_set_pretty(generator, TRUE);
  MvGCharPtr pretty(json_generator_to_data(generator, nullptr));
  g_autoptr(JsonNode) copy = json_node_copy(root);
  EXPECT_TRUE(json_node_equal(copy, root));
}

// The bytes of stack `work` uses, run on a thread whose stack of `size` bytes is painted first.
size_t stackUsed(std::function<void()> work, size_t size) {
  std::vector<unsigned char> stack(size + 4096, 0xA5);
  unsigned char* base = stack.data() + (4096 - reinterpret_cast<uintptr_t>(stack.data()) % 4096);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, base, size);
  pthread_t thread;
  auto start = [](void* data) -> void* {
    return (*static_cast<std::function<void()>*>(data))(), nullptr;
  };
  EXPECT_EQ(pthread_create(&thread, &attributes, start, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  return size - (std::find_if(base, base + size, [](unsigned char c) { return c != 0xA5; }) - base);
}

// The limit comes from json-glib's stack per level, measured here, and the watch's main thread
// stack: at the limit, json-glib's deepest work takes nearly all of half of it, and no more.
TEST(JsonNestingTest, AtTheLimitJsonGlibFillsHalfTheWatchStack) {
  // Objects are json-glib's deepest frames: an object and its member per level.
  std::string atLimit;
  while (atLimit.size() < 5u * kMvJsonMaxNesting)
    atLimit += "{\"k\":";
  atLimit += "1" + std::string(kMvJsonMaxNesting, '}');
  EXPECT_FALSE(mvJsonNestsDeeperThan(atLimit.data(), atLimit.size()));
  EXPECT_TRUE(mvJsonNestsDeeperThan(("[" + atLimit + "]").data(), atLimit.size() + 2));
  const size_t half = kMvMainThreadStackBytes / 2;
  const size_t used = stackUsed([&] { throughJsonGlib(atLimit); }, 2 * half);
  EXPECT_LE(used, half + 64 * 1024);
  EXPECT_GE(used, half * 9 / 10);
}

int parsedDepth(JsonNode* node) {
  int deepest = 0;
  if (JSON_NODE_HOLDS_ARRAY(node)) {
    JsonArray* array = json_node_get_array(node);
    for (guint i = 0; i < json_array_get_length(array); ++i)
      deepest = std::max(deepest, parsedDepth(json_array_get_element(array, i)));
  } else if (JSON_NODE_HOLDS_OBJECT(node)) {
    g_autoptr(GList) values = json_object_get_values(json_node_get_object(node));
    for (GList* value = values; value; value = value->next)
      deepest = std::max(deepest, parsedDepth(static_cast<JsonNode*>(value->data)));
  } else {
    return 0;
  }
  return deepest + 1;
}

// The message json-glib itself gives for `text`, or "" when it loads.
bool jsonGlibLoads(const std::string& text) {
  g_autoptr(JsonParser) parser = json_parser_new();
  return json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()), nullptr);
}

// Random texts built from the pieces json-glib's scanner treats specially: for each one it
// accepts, the check finds exactly the depth json-glib built.
TEST(JsonNestingTest, AgreesWithJsonGlibOnEveryTextItAccepts) {
  const char* const pieces[] = {"[", "]",      "{",   "}", "\"", "'",    "\\",  "/",
                                "u", "d8",     "dc",  "0", "Z",  ",",    ":",   "1",
                                " ", "\"a\":", "\\u", "*", "\n", "\\\"", "true"};
  g_autoptr(GRand) random = g_rand_new_with_seed(13);
  int accepted = 0;
  for (int round = 0; round < 60000; ++round) {
    std::string text;
    const int count = g_rand_int_range(random, 1, 15);
    for (int i = 0; i < count; ++i)
      text += pieces[g_rand_int_range(random, 0, G_N_ELEMENTS(pieces))];
      // json-glib 1.6 leaks the nodes of a second top-level value that it refuses; random texts
      // hold some. What json-glib allocates here is no leak of ours.
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();
#endif
    // One value only: json-glib also parses values after the first, without showing them.
    const bool loads = jsonGlibLoads(text) && jsonGlibLoads("[" + text + "]");
    int depth = 0;
    if (loads) {
      g_autoptr(JsonParser) parser = json_parser_new();
      json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()), nullptr);
      JsonNode* root = json_parser_get_root(parser);
      depth = root ? parsedDepth(root) : 0;
    }
#if defined(__SANITIZE_ADDRESS__)
    __lsan_enable();
#endif
    if (!loads)
      continue;
    ++accepted;
    EXPECT_FALSE(mvJsonNestsDeeperThan(text.data(), text.size(), depth)) << text;
    if (depth > 0) {
      EXPECT_TRUE(mvJsonNestsDeeperThan(text.data(), text.size(), depth - 1)) << text;
    }
  }
  EXPECT_GT(accepted, 500);
}

}  // namespace
