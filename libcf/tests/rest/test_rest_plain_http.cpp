#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"
#include "rest/rest_url.h"

// Hosts whose https URLs are requested by plain HTTP.

namespace {

std::string usePlainHTTPFor(const std::vector<std::string>& hosts, std::string url) {
    cf::usePlainHTTP(url, hosts);
    return url;
}

}  // namespace

TEST(RestPlainHTTP, IsUsedForTheNamedHostsOnly) {
    EXPECT_EQ(usePlainHTTPFor({"local"}, "https://local/v1?q#f"), "http://local/v1?q#f");
    EXPECT_EQ(usePlainHTTPFor({"local"}, "https://local"), "http://local");
    EXPECT_EQ(usePlainHTTPFor({"local"}, "https://local:8080/v1"), "http://local:8080/v1");
    EXPECT_EQ(usePlainHTTPFor({"other", "LOCAL"}, "HTTPS://Local/"), "http://Local/");
    for (const char* const url :
         {"https://local.example/", "https://notlocal/", "https://loca/", "https://a/local", "https://a/?local",
          "https://a/#local", "https:///local", "https://local.", "local", "ftp://local/", "httpsx://local/"}) {
        EXPECT_EQ(usePlainHTTPFor({"local"}, url), url);
    }
    EXPECT_EQ(usePlainHTTPFor({}, "https://local/"), "https://local/");
}

TEST(RestPlainHTTP, ComparesAPortThatIsNamed) {
    EXPECT_EQ(usePlainHTTPFor({"local:8080"}, "https://local:8080/v1"), "http://local:8080/v1");
    for (const char* const url : {"https://local/", "https://local:80/", "https://local:80800/", "https://local:/"}) {
        EXPECT_EQ(usePlainHTTPFor({"local:8080"}, url), url);
    }
}

TEST(RestPlainHTTP, KnowsAddressesInBrackets) {
    EXPECT_EQ(usePlainHTTPFor({"[::1]"}, "https://[::1]:8080/"), "http://[::1]:8080/");
    EXPECT_EQ(usePlainHTTPFor({"[::1]"}, "https://[::1]/"), "http://[::1]/");
    EXPECT_EQ(usePlainHTTPFor({"[FE80::a]:80"}, "https://[fe80::A]:80/"), "http://[fe80::A]:80/");
    EXPECT_EQ(usePlainHTTPFor({"[::1]:8080"}, "https://[::1]:8081/"), "https://[::1]:8081/");
    EXPECT_EQ(usePlainHTTPFor({"[::1]"}, "https://[::2]/"), "https://[::2]/");
}

TEST(RestPlainHTTP, IsNeverUsedByAnEntryThatNamesNoHost) {
    for (const char* const entry : {"", ":", ":8080", " ", "https://local", "local/", "*"}) {
        EXPECT_EQ(usePlainHTTPFor({entry}, "https://local:8080/"), "https://local:8080/") << entry;
        EXPECT_EQ(usePlainHTTPFor({entry}, "https:///"), "https:///") << entry;
    }
}

TEST(RestPlainHTTP, ReachesAServerWithoutTLS) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; });
    RestCaller caller;
    caller.recordTrace();
    // Read only for TLS: a file that is not there does not matter.
    caller.settings.caBundleFile = "/no/such/file";
    caller.settings.plainHTTPHosts = {server.obtainAuthority()};
    EXPECT_EQ(caller.get("https://" + server.obtainAuthority() + "/v1").obtainBody(), "ok");
    EXPECT_EQ(caller.records.at(0).url, server.obtainURL("/v1"));
    EXPECT_EQ(server.requests().at(0).path, "/v1");
}

TEST(RestPlainHTTP, LeavesOtherServersToTLS) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; });
    RestCaller caller;
    caller.settings.verifyPeer = false;
    caller.settings.connectTimeout = std::chrono::milliseconds(500);  // the server waits for a request, too
    caller.settings.plainHTTPHosts = {server.obtainAuthority("localhost"), "127.0.0.1:1"};
    EXPECT_NE(caller.get("https://" + server.obtainAuthority() + "/").code, 0);
    EXPECT_EQ(server.countRequests(), 0U);
}

TEST(RestPlainHTTP, DoesNotFollowARedirect) {
    LoopbackServer target([](const LoopbackRequest&) { return LoopbackReply{.body = "elsewhere"}; });
    LoopbackServer server([&](const LoopbackRequest&) {
        return LoopbackReply{.status = 302, .headers = {{"Location", target.obtainURL()}}};
    });
    RestCaller caller;
    caller.settings.plainHTTPHosts = {server.obtainAuthority()};
    EXPECT_EQ(caller.get("https://" + server.obtainAuthority() + "/").code, 302);
    EXPECT_EQ(target.countConnections(), 0U);
}
