// The two promises of the fake platform that other tests rely on without saying so: queued
// results are used first, in order, before the standing one; and a settings change reaches
// only the callbacks of its own key, after the value is stored.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_platform.h"
#include "vconf.h"

namespace {

TEST(FakePlatform, QueuedResultsComeFirstInOrderThenTheStandingOneThenTheDefault) {
    fake::Reset();
    fake::SetResult("vconf_set_int", -5);
    fake::QueueResult("vconf_set_int", -1);
    fake::QueueResult("vconf_set_int", -2);
    EXPECT_EQ(-1, vconf_set_int("k", 1));
    EXPECT_EQ(-2, vconf_set_int("k", 2));
    EXPECT_EQ(-5, vconf_set_int("k", 3));
    // A scripted failure has no effect on the store.
    EXPECT_FALSE(fake::GetInt("k").has_value());
    fake::ClearResult("vconf_set_int");
    EXPECT_EQ(0, vconf_set_int("k", 4));
    EXPECT_EQ(4, fake::GetInt("k"));
}

void Record(keynode_t* node, void* data) {
    // The value must already be stored when the listener runs.
    int stored = -1;
    vconf_get_int(vconf_keynode_get_name(node), &stored);
    static_cast<std::vector<std::string>*>(data)->push_back(
        std::string(vconf_keynode_get_name(node)) + "=" +
        std::to_string(vconf_keynode_get_int(node)) + "/" + std::to_string(stored));
}

void RecordToo(keynode_t* node, void* data) {
    Record(node, data);
}

TEST(FakePlatform, ChangeReachesOnlyTheCallbacksOfThatKey) {
    fake::Reset();
    std::vector<std::string> a, b;
    ASSERT_EQ(0, vconf_notify_key_changed("key/one", Record, &a));
    ASSERT_EQ(0, vconf_notify_key_changed("key/one", RecordToo, &b));
    ASSERT_EQ(0, vconf_notify_key_changed("key/two", Record, &b));
    fake::ChangeInt("key/one", 7);
    EXPECT_EQ(std::vector<std::string>{"key/one=7/7"}, a);
    EXPECT_EQ(std::vector<std::string>{"key/one=7/7"}, b);

    // The daemon's own writes never come back to it as changes; ignoring drops only that
    // callback of that key.
    EXPECT_EQ(0, vconf_set_int("key/two", 3));
    EXPECT_EQ(0, vconf_ignore_key_changed("key/one", RecordToo));
    fake::ChangeInt("key/one", 8);
    fake::ChangeInt("key/two", 9);
    EXPECT_EQ((std::vector<std::string>{"key/one=7/7", "key/one=8/8"}), a);
    EXPECT_EQ((std::vector<std::string>{"key/one=7/7", "key/two=9/9"}), b);
}

}  // namespace
