#include "engine/server_url.h"

#include <gmock/gmock.h>

namespace {

using host::ServerUrl;

TEST(ServerUrl, ReadsAllParts) {
    const ServerUrl url =
        host::parseServerUrl("mysql://us%40er@db.example:3307/my%20shop?socket=%2Ftmp%2Fs&ssl-ca=a%3Db");
    EXPECT_EQ(url.user, "us@er");
    EXPECT_FALSE(url.hasPassword);
    EXPECT_EQ(url.host, "db.example");
    EXPECT_EQ(url.port, "3307");
    EXPECT_EQ(url.name, "my shop");
    EXPECT_EQ(url.parameters.at("socket"), "/tmp/s");
    EXPECT_EQ(url.parameters.at("ssl-ca"), "a=b");
}

TEST(ServerUrl, ReadsWhatIsMissingAsEmpty) {
    const ServerUrl url = host::parseServerUrl("postgresql://");
    EXPECT_EQ(url.user + url.host + url.port + url.name, "");
    EXPECT_TRUE(url.parameters.empty());
    EXPECT_EQ(host::parseServerUrl("mysql://h").host, "h");
    EXPECT_EQ(host::parseServerUrl("mysql:///shop").name, "shop");
    EXPECT_EQ(host::parseServerUrl("postgresql:///shop?host=/tmp").parameters.at("host"), "/tmp");
}

TEST(ServerUrl, ReadsAnIPv6Host) {
    const ServerUrl url = host::parseServerUrl("mysql://a@[::1]:3306/x");
    EXPECT_EQ(url.host, "::1");
    EXPECT_EQ(url.port, "3306");
}

TEST(ServerUrl, KeepsMalformedPercentsAsTheyAre) {
    EXPECT_EQ(host::parseServerUrl("mysql://h/a%2").name, "a%2");
    EXPECT_EQ(host::parseServerUrl("mysql://h/a%zz%41").name, "a%zzA");
}

TEST(ServerUrl, NoticesAPasswordAndNeverShowsIt) {
    for (const std::string url : {"mysql://me:secret@h:1/x", "mysql://me@h:1/x?password=secret",
                                  "mysql://me:se@cret@h:1/x", "mysql://me@h:1/x?a=b&password=secret"}) {
        EXPECT_TRUE(host::parseServerUrl(url).hasPassword) << url;
        EXPECT_EQ(host::describeServerUrl(url), "mysql://me@h:1/x");
    }
    EXPECT_FALSE(host::parseServerUrl("mysql://me@h:1/x").hasPassword);
}

}  // namespace
