#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "conversation/conversation_file.h"
#include "conversation/sql_extractor.h"
#include "engine/script_splitter.h"
#include "fuzz_require.h"
#include "fuzz_tables.h"
#include "fuzz_targets.h"
#include "host_error.h"
#include "temporary_folder.h"
#include "terminal/markdown_stream.h"
#include "terminal/secret_text.h"
#include "terminal/text_safety.h"
#include "terminal/utf8.h"
#include "terminal/visible_stream.h"

namespace {

/// A new file each time: some file systems write one to the disk at once that is emptied and filled again.
std::string writeInput(const TemporaryFolder& folder, std::string_view content) {
    std::filesystem::remove(folder.name("conversation"));
    return folder.write("conversation", content);
}

std::optional<host::ConversationRecord> readConversation(const std::string& fileName) {
    try {
        return host::readConversationFile(fileName);
    } catch (const host::HostError&) {
        return std::nullopt;
    }
}

bool canBeSavedOver(const std::string& fileName) {
    try {
        host::checkSaveTarget(fileName);
        return true;
    } catch (const host::HostError&) {
        return false;
    }
}

void readConversationInput(std::string_view input) {
    const QuietAssertions quiet;
    static const TemporaryFolder folder;
    const std::string fileName = writeInput(folder, input);
    const std::optional<host::ConversationRecord> first = readConversation(fileName);
    require(canBeSavedOver(fileName) == (first || input.empty()), "only a conversation may be saved over");
    if (!first) {
        return;
    }
    const std::optional<host::ConversationRecord> again =
        readConversation(writeInput(folder, host::writeConversation(*first)));
    require(again.has_value(), "a conversation that is saved can be read");
    require(again->provider == first->provider && again->temperature == first->temperature,
            "provider and temperature stay as they are");
    require(host::writeConversation(*again) == host::writeConversation(*first), "a conversation is saved the same");
}

std::string removeCarriageReturns(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

std::string endLinesWithCarriageReturns(std::string_view text) {
    std::string changed;
    for (const char character : text) {
        changed += character == '\n' ? "\r" : "";
        changed += character;
    }
    return changed;
}

using Blocks = std::vector<std::string>;

Blocks extract(std::string_view answer) {
    return host::extractSql(answer, {"sqlite", "postgresql"});
}

void checkBlocks(std::string_view answer, const Blocks& blocks) {
    for (const std::string& block : blocks) {
        require(block.find_first_not_of(" \t\r\n") != std::string::npos, "no block is blank");
        if (block.back() == '\n' && block.find('\r') == std::string::npos) {
            const std::string fence(answer.size() + 3, '`');
            require(extract(fence + "sql\n" + block + fence) == Blocks{block}, "a block in a longer fence is itself");
        }
    }
}

/// A script's statements stand in it, one behind the other.
void checkStatements(std::string_view script, const host::ScriptSyntax& syntax) {
    std::size_t place = 0;
    for (const std::string& statement : host::splitScript(script, syntax)) {
        place = script.find(statement, place);
        require(place != std::string_view::npos, "statements are parts of the script, in order");
        place += statement.size();
        require(statement.find_first_not_of(" \t\r\n") != std::string::npos, "no statement is blank");
        require(statement.find(host::readFirstWord(statement, syntax)) != std::string::npos,
                "the first word is in the statement");
    }
}

void extractSqlInput(std::string_view input) {
    const Blocks blocks = extract(input);
    checkBlocks(input, blocks);
    if (input.find('\r') == std::string_view::npos) {
        Blocks others = extract(endLinesWithCarriageReturns(input));
        std::transform(others.begin(), others.end(), others.begin(), removeCarriageReturns);
        require(others == blocks, "line ends may have carriage returns");
    }
    constexpr std::array<host::ScriptSyntax, 3> kSyntaxes{
        {{},
         {.hasEscapeTexts = true, .hasDollarQuotes = true, .hasNestedComments = true},
         {.hasBackslashEscapes = true, .hasBackquotes = true, .hasHashComments = true}}};
    for (const host::ScriptSyntax& syntax : kSyntaxes) {
        checkStatements(input, syntax);
        std::for_each(blocks.begin(), blocks.end(), [&](const std::string& block) { checkStatements(block, syntax); });
    }
}

/// What a stream makes of a text in pieces: single characters, each a whole one.
template <typename Stream>
std::string passByCharacters(std::string_view text) {
    Stream stream;
    std::string result;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t start = position;
        static_cast<void>(host::decodeCharacter(text, position));
        result += stream.add(text.substr(start, position - start));
    }
    return result + stream.finish();
}

template <typename Stream>
std::string passWhole(std::string_view text) {
    Stream stream;
    const std::string result = stream.add(text);
    return result + stream.finish();
}

std::string removeColours(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        if (text.front() == '\033') {
            const std::size_t end = text.find('m');
            require(end != std::string_view::npos, "a colour ends with m");
            text.remove_prefix(end + 1);
        } else {
            plain += text.front();
            text.remove_prefix(1);
        }
    }
    return plain;
}

/// An answer on its way to the terminal: made visible, then coloured.
void printAnswerInput(std::string_view input) {
    host::setHiddenSecret(kFuzzedSecret);
    const std::string visible = host::makeVisible(input, host::LineBreaks::Keep);
    require(visible.find(kFuzzedSecret) == std::string::npos, "no secret is printed");
    require(passWhole<host::VisibleStream>(input) == visible, "a stream makes the same visible");
    require(passByCharacters<host::VisibleStream>(input) == visible, "a stream makes the same visible in pieces");
    const std::string coloured = passWhole<host::MarkdownStream>(visible);
    require(passByCharacters<host::MarkdownStream>(visible) == coloured, "pieces are coloured like the whole");
    require(removeColours(coloured) == visible, "colours change nothing of the text");
    const std::size_t lastColour = coloured.rfind('\033');
    require(lastColour == std::string::npos || coloured.compare(lastColour, 4, "\033[0m") == 0, "every colour ends");
}

}  // namespace

std::vector<FuzzTarget> listHostTargets() {
    return {
        {"conversation", readConversationInput, 2'000},
        {"sql", extractSqlInput, 10'000},
        {"answer", printAnswerInput, 10'000},
        {"table", printTableInput, 10'000},
    };
}
