#include "conversation/conversation_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "cf/json.h"
#include "conversation/atomic_file.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr std::string_view kVersionKey = "kai_conversation";
constexpr std::int64_t kVersion = 1;

/// A conversation is never larger, and a wrong file name must not fill the memory. Bytes.
constexpr std::uintmax_t kMaxFileBytes = std::uintmax_t{256} * 1024 * 1024;

[[noreturn]] void fail(const std::string& fileName, const std::string& reason) {
    throw HostError(ExitCode::Usage, "cannot continue from '" + makeOneLine(fileName) + "': " + reason);
}

std::string readWholeFile(const std::string& fileName) {
    struct stat status {};
    if (stat(fileName.c_str(), &status) != 0) {
        fail(fileName, std::string(std::strerror(errno)) + "; name a file that kai saved with --save");
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::uintmax_t>(status.st_size) > kMaxFileBytes) {
        fail(fileName, "it is not a conversation file; name one that kai saved with --save");
    }
    errno = 0;
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        fail(fileName, std::string(std::strerror(errno)) + "; check its permissions");
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Parses the content of a file; nothing if it is not a conversation of a known version.
std::optional<ConversationRecord> parseConversation(const std::string& content) {
    const COJson json{std::string_view(content)};
    const COJsonValue root = json.obtainRoot();
    const COJsonValue session = root.obtainMember("session");
    if (root.obtainMember(kVersionKey).obtainInteger() != kVersion || !root.obtainMember("provider").isString() ||
        !session.isObject()) {
        return std::nullopt;
    }
    return ConversationRecord{std::string(root.obtainMember("provider").obtainString()),
                              std::string(root.obtainMember("temperature").obtainString()), session.obtainJsonString()};
}

}  // namespace

std::string writeConversation(const ConversationRecord& conversation) {
    std::string content;
    {
        COJsonWriter writer(content);
        writer.beginObject();
        writer.writeKey(kVersionKey);
        writer.writeInteger(kVersion);
        writer.writeMember("provider", conversation.provider);
        if (!conversation.temperature.empty()) {
            writer.writeMember("temperature", conversation.temperature);
        }
        writer.endObject();
        writer.finish();
    }
    // The session text is already JSON and is inserted unchanged.
    content.pop_back();
    return content + ",\"session\":" + conversation.sessionText + "}\n";
}

ConversationRecord readConversationFile(const std::string& fileName) {
    std::optional<ConversationRecord> conversation = parseConversation(readWholeFile(fileName));
    if (!conversation) {
        fail(fileName, "it is not a conversation file, or it is damaged; name one that kai saved with --save");
    }
    return std::move(*conversation);
}

void checkSaveTarget(const std::string& fileName) {
    checkFileCanBeReplaced(fileName);
    struct stat status {};
    if (stat(fileName.c_str(), &status) != 0 || status.st_size == 0) {
        return;
    }
    std::ifstream file(fileName, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!parseConversation(content)) {
        throw HostError(ExitCode::Usage, "will not save over '" + makeOneLine(fileName) +
                                             "': it is not a conversation file; name another file with --save");
    }
}

}  // namespace host
