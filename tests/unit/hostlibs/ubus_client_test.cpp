// The bus client against the simulated daemon, well-behaved and not. That a call returns is checked by its result;
// no test looks at the clock.
#include "ubus_daemon.h"

#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>
#include <libubus.h>

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// For calls that are to be answered: long enough for any machine. For those that are not: short.
constexpr int AMPLE_MS = 60000;
constexpr int SHORT_MS = 150;

struct FreeContext {
    void operator()(ubus_context *ctx) const { ubus_free(ctx); }
};
using Context = std::unique_ptr<ubus_context, FreeContext>;

void collectReply(ubus_request *req, int type, blob_attr *msg) {
    EXPECT_EQ(UBUS_MSG_DATA, type);
    char *text = blobmsg_format_json(msg, true);
    static_cast<std::vector<std::string> *>(req->priv)->push_back(text != nullptr ? text : "(null)");
    free(text);
}

void collectPath(ubus_context *, ubus_object_data *object, void *priv) {
    static_cast<std::vector<std::string> *>(priv)->push_back(object->path);
}

// A call's outcome; with the id of an object that is not there, the look-up's.
int call(ubus_context *ctx, const char *object, const char *method, std::vector<std::string> *replies,
         int timeout_ms = AMPLE_MS, const char *args = "{}") {
    uint32_t id = 0;
    if (const int status = ubus_lookup_id(ctx, object, &id)) {
        return status;
    }
    blob_buf buf{};
    blob_buf_init(&buf, 0);
    EXPECT_TRUE(blobmsg_add_json_from_string(&buf, args));
    const int status = ubus_invoke(ctx, id, method, buf.head, collectReply, replies, timeout_ms);
    blob_buf_free(&buf);
    return status;
}

using Replies = std::vector<std::string>;

const char *const STATE = R"({
    "interfaces": {"lan": "up", "wwan": "pending", "wan": "down", "guest": "unknown"},
    "replies": {"values": {"all": {"yes": true, "no": false, "int": -5, "big": 5000000000, "double": 0.1,
                                   "text": "\" \\ \n \u0001 ä", "none": null, "list": [1, [], {"a": {}}]}}}
})";

TEST(UbusClient, LooksUpAndInvokes) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    EXPECT_NE(0u, ctx->local_id);
    EXPECT_EQ(FD_CLOEXEC, fcntl(ctx->sock.fd, F_GETFD));

    Replies replies;
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "network.interface.lan", "status", &replies));
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "network.interface.wwan", "status", &replies));
    EXPECT_EQ((Replies{R"({"up":true,"pending":false,"available":true,"autostart":true,"dynamic":false,"uptime":60})",
                       R"({"up":false,"pending":true,"available":true,"autostart":true,"dynamic":false})"}),
              replies);
}

TEST(UbusClient, EveryTypeOfValueArrives) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "values", "all", &replies));
    EXPECT_EQ((Replies{R"({"yes":true,"no":false,"int":-5,"big":5000000000,"double":0.1,)"
                       R"("text":"\" \\ \n \u0001 ä","none":null,"list":[1,[],{"a":{}}]})"}),
              replies);
}

TEST(UbusClient, ArgumentsArrive) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "mqtt", "notify", &replies, AMPLE_MS,
                                   R"({"b":true,"n":-7,"big":-5000000000,"d":2.5,"s":"x\"y","l":[1,{}],"z":null})"));
    EXPECT_EQ(Replies{}, replies);
    EXPECT_EQ((std::vector<std::string>{
                  R"({"kind": "ubus", "object": "mqtt", "method": "notify", "args": )"
                  R"({"b": true, "n": -7, "big": -5000000000, "d": 2.5, "s": "x\"y", "l": [1, {}], "z": null}})"}),
              daemon.log());
}

TEST(UbusClient, InvokesWithoutMessageAndCallback) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    uint32_t id = 0;
    ASSERT_EQ(UBUS_STATUS_OK, ubus_lookup_id(ctx.get(), "network", &id));
    EXPECT_EQ(UBUS_STATUS_OK, ubus_invoke_fd(ctx.get(), id, "reload", nullptr, nullptr, nullptr, AMPLE_MS, -1));
    ASSERT_EQ(UBUS_STATUS_OK, ubus_lookup_id(ctx.get(), "values", &id));
    EXPECT_EQ(UBUS_STATUS_OK, ubus_invoke_fd(ctx.get(), id, "all", nullptr, nullptr, nullptr, 0, -1));
}

TEST(UbusClient, WhatIsNotThere) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    uint32_t id = 77;
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND, ubus_lookup_id(ctx.get(), "network.interface.guest", &id));
    EXPECT_EQ(77u, id);
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND, ubus_invoke(ctx.get(), 1, "status", nullptr, nullptr, nullptr, AMPLE_MS));
    EXPECT_EQ(UBUS_STATUS_METHOD_NOT_FOUND, call(ctx.get(), "network", "restart", nullptr));
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND,
              call(ctx.get(), "network.interface", "status", nullptr, AMPLE_MS, R"({"interface":"guest"})"));
}

TEST(UbusClient, ListsObjects) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies paths;
    EXPECT_EQ(UBUS_STATUS_OK, ubus_lookup(ctx.get(), "network.interface.*", collectPath, &paths));
    EXPECT_EQ((Replies{"network.interface.lan", "network.interface.wwan", "network.interface.wan"}), paths);
    paths.clear();
    EXPECT_EQ(UBUS_STATUS_OK, ubus_lookup(ctx.get(), nullptr, collectPath, &paths));
    EXPECT_EQ(8u, paths.size());
}

TEST(UbusClient, LargeRepliesAndArguments) {
    const std::string text(500000, 'x');
    UbusDaemon daemon(R"({"replies": {"large": {"get": {"text": ")" + text + R"("}}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    const std::string json = "{\"text\":\"" + text + "\"}";
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "large", "get", &replies, AMPLE_MS, json.c_str()));
    EXPECT_EQ(Replies{json}, replies);
    ASSERT_EQ(1u, daemon.log().size());
    EXPECT_GT(daemon.log()[0].size(), text.size());

    const std::string too_large = "{\"text\":\"" + text + text + text + "\"}";
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, call(ctx.get(), "large", "get", nullptr, AMPLE_MS, too_large.c_str()));
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "large", "get", &replies));
}

TEST(UbusClient, StatusOfTheOtherSideIsTheResult) {
    UbusDaemon daemon(R"({"faults": {"network": {"reload": {"status": 6}}, "mqtt": {"<lookup>": {"status": 5}}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, call(ctx.get(), "network", "reload", nullptr));
    EXPECT_EQ(UBUS_STATUS_NO_DATA, call(ctx.get(), "mqtt", "notify", nullptr));
}

TEST(UbusClient, NoAnswerEndsWithTheTimeout) {
    UbusDaemon daemon(R"({"interfaces": {"lan": "up"}, "faults": {"network": {"reload": "silent"}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    EXPECT_EQ(UBUS_STATUS_TIMEOUT, call(ctx.get(), "network", "reload", nullptr, SHORT_MS));
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "network.interface.lan", "up", nullptr));
}

TEST(UbusClient, DribbleEndsWithTheTimeoutAndTheConnectionGoesOn) {
    UbusDaemon daemon(R"({"interfaces": {"lan": "up"},
                          "faults": {"network.interface.lan": {"status": {"dribble": 0.01}}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    EXPECT_EQ(UBUS_STATUS_TIMEOUT, call(ctx.get(), "network.interface.lan", "status", &replies, SHORT_MS));
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "network.interface.lan", "up", &replies));
    EXPECT_EQ(Replies{}, replies);
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "network.interface.lan", "status", &replies));
    EXPECT_EQ(1u, replies.size());
}

TEST(UbusClient, LateAnswerIsNotTheNextCalls) {
    UbusDaemon daemon(R"({"replies": {"a": {"late": {"which": 1}, "next": {"which": 2}}},
                          "faults": {"a": {"late": {"delay": 1.5}}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    EXPECT_EQ(UBUS_STATUS_TIMEOUT, call(ctx.get(), "a", "late", &replies, SHORT_MS));
    EXPECT_EQ(UBUS_STATUS_OK, call(ctx.get(), "a", "next", &replies));
    EXPECT_EQ(Replies{R"({"which":2})"}, replies);
}

TEST(UbusClient, FloodOfOtherAnswersEndsWithTheTimeout) {
    UbusDaemon daemon(R"({"faults": {"network": {"reload": "flood"}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    Replies replies;
    EXPECT_EQ(UBUS_STATUS_TIMEOUT, call(ctx.get(), "network", "reload", &replies, SHORT_MS));
    EXPECT_EQ(Replies{}, replies);
}

TEST(UbusClient, DaemonThatDiesInTheMiddle) {
    UbusDaemon daemon(R"({"interfaces": {"lan": "up"},
                          "faults": {"network.interface.lan": {"status": "die", "<lookup>": {"delay": 0.01}},
                                     "mqtt": {"<lookup>": "die"}}})");
    for (const char *object : {"network.interface.lan", "mqtt"}) {
        Context ctx(ubus_connect(daemon.socket()));
        ASSERT_NE(nullptr, ctx);
        Replies replies;
        EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED, call(ctx.get(), object, "status", &replies));
        EXPECT_EQ(Replies{}, replies);
        EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED, call(ctx.get(), "network", "reload", &replies));
    }
}

TEST(UbusClient, DaemonThatDoesNotRead) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    daemon.freeze();
    blob_buf buf{};
    blob_buf_init(&buf, 0);
    blobmsg_add_string(&buf, "text", std::string(900000, 'x').c_str());
    EXPECT_EQ(UBUS_STATUS_TIMEOUT, ubus_invoke(ctx.get(), 1, "x", buf.head, nullptr, nullptr, SHORT_MS));
    // Half a message is in the socket; nothing sensible can follow it.
    EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED, ubus_invoke(ctx.get(), 1, "x", nullptr, nullptr, nullptr, SHORT_MS));
    blob_buf_free(&buf);
}

TEST(UbusClient, DaemonThatDoesNotGreet) {
    UbusDaemon daemon(R"({"greeting": "silent"})");
    EXPECT_EQ(nullptr, ubus_connect(daemon.socket()));
}

TEST(UbusClient, DaemonThatIsGoneRaisesNoSignal) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    daemon.kill();
    EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED, call(ctx.get(), "network", "reload", nullptr));
    EXPECT_EQ(nullptr, ubus_connect(daemon.socket()));
}

TEST(UbusClient, NoDaemon) {
    EXPECT_EQ(nullptr, ubus_connect("/nonexistent/ubus.sock"));
    EXPECT_EQ(nullptr, ubus_connect(std::string(200, 'x').c_str()));
    ubus_free(nullptr);
}

TEST(UbusClient, DaemonThatGreetsWrongly) {
    UbusDaemon daemon(R"({"greeting": "die"})");
    for (const char *greeting : {
             R"("die")",
             R"({"raw": "00010000000000000000000400"})",   // a status instead
             R"({"raw": "01000000000010000000000400"})",   // another version
             R"({"raw": "00000000000010000000000000"})",   // a body shorter than its header
             R"({"raw": "0000000000001000007fffffff00"})", // a body beyond the limit
         }) {
        daemon.setState(std::string(R"({"greeting": )") + greeting + "}");
        EXPECT_EQ(nullptr, ubus_connect(daemon.socket())) << greeting;
    }
}

// The answer to the second request of a connection, its object's look-up being the first.
TEST(UbusClient, DamagedAnswers) {
    const struct {
        const char *what;
        const char *bytes;
        int result;
    } cases[] = {
        {"status without its attribute",
         "0001000200000000"
         "00000004",
         UBUS_STATUS_UNKNOWN_ERROR},
        {"status too short",
         "0001000200000000"
         "0000000c"
         "0100000600060000",
         UBUS_STATUS_UNKNOWN_ERROR},
        {"status cut off by its message",
         "0001000200000000"
         "0000000a"
         "010000080006",
         UBUS_STATUS_UNKNOWN_ERROR},
        {"data without data, then status",
         "0002000200000000"
         "00000004"
         "0001000200000000"
         "0000000c"
         "0100000800000000",
         UBUS_STATUS_OK},
        {"unknown message type, then status",
         "00ff000200000000"
         "00000004"
         "0001000200000000"
         "0000000c"
         "0100000800000000",
         UBUS_STATUS_OK},
        {"body of no length",
         "0001000200000000"
         "00000000",
         UBUS_STATUS_CONNECTION_FAILED},
        {"body beyond the limit",
         "0001000200000000"
         "00ffffff",
         UBUS_STATUS_CONNECTION_FAILED},
        {"another version",
         "0101000200000000"
         "0000000c"
         "0100000800000000",
         UBUS_STATUS_CONNECTION_FAILED},
    };
    UbusDaemon daemon("{}");
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        daemon.setState(std::string(R"({"faults": {"network": {"reload": {"raw": ")") + test.bytes + "\"}}}}");
        Context ctx(ubus_connect(daemon.socket()));
        ASSERT_NE(nullptr, ctx);
        Replies replies;
        EXPECT_EQ(test.result, call(ctx.get(), "network", "reload", &replies));
        EXPECT_EQ(Replies{}, replies);
    }
}

TEST(UbusClient, DescriptorsAreClosedWhateverTheResult) {
    UbusDaemon daemon(STATE);
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    uint32_t id = 0;
    ASSERT_EQ(UBUS_STATUS_OK, ubus_lookup_id(ctx.get(), "mqtt", &id));
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(UBUS_STATUS_OK, ubus_invoke_fd(ctx.get(), id, "notify", nullptr, nullptr, nullptr, AMPLE_MS, fd));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
    daemon.kill();
    fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED,
              ubus_invoke_fd(ctx.get(), id, "notify", nullptr, nullptr, nullptr, AMPLE_MS, fd));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

struct Nested {
    Replies replies;
    int status = -1;
};

void callAnother(ubus_request *req, int type, blob_attr *msg) {
    auto *nested = static_cast<Nested *>(req->priv);
    nested->status = call(req->ctx, "network.interface.lan", "status", &nested->replies);
    char *text = blobmsg_format_json(msg, true);
    nested->replies.push_back(text);
    free(text);
    EXPECT_EQ(UBUS_MSG_DATA, type);
}

TEST(UbusClient, CallbackMayCall) {
    UbusDaemon daemon(R"({"interfaces": {"lan": "down"}, "replies": {"a": {"b": {"x": 1}}}})");
    Context ctx(ubus_connect(daemon.socket()));
    ASSERT_NE(nullptr, ctx);
    uint32_t id = 0;
    ASSERT_EQ(UBUS_STATUS_OK, ubus_lookup_id(ctx.get(), "a", &id));
    Nested nested;
    EXPECT_EQ(UBUS_STATUS_OK, ubus_invoke(ctx.get(), id, "b", nullptr, callAnother, &nested, AMPLE_MS));
    EXPECT_EQ(UBUS_STATUS_OK, nested.status);
    ASSERT_EQ(2u, nested.replies.size());
    EXPECT_EQ(R"({"x":1})", nested.replies[1]);
}

TEST(UbusClient, StatusTexts) {
    EXPECT_STREQ("Success", ubus_strerror(UBUS_STATUS_OK));
    EXPECT_STREQ("Not found", ubus_strerror(UBUS_STATUS_NOT_FOUND));
    EXPECT_STREQ("Connection failed", ubus_strerror(UBUS_STATUS_CONNECTION_FAILED));
    EXPECT_STREQ("Unknown error", ubus_strerror(-1));
    EXPECT_STREQ("Unknown error", ubus_strerror(1000));
}

} // namespace
