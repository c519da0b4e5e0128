#include "conversation/sql_extractor.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

namespace host {
namespace {

struct CodeBlock {
    std::string mark;  ///< the first word after the opening fence, in lower case
    std::string content;
};

/// The run of "`" or "~" at the start of a line.
struct Fence {
    char character = '\0';
    std::size_t length = 0;
    std::size_t indentation = 0;
    std::string_view behind;
};

std::string_view trimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return lower;
}

std::string_view takeLine(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

/// Reads a fence at any indentation: models put code blocks into list items.
std::optional<Fence> readFence(std::string_view line) {
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || (line[start] != '`' && line[start] != '~')) {
        return std::nullopt;
    }
    const std::size_t end = std::min(line.find_first_not_of(line[start], start), line.size());
    if (end - start < 3) {
        return std::nullopt;
    }
    return Fence{line[start], end - start, start, line.substr(end)};
}

bool isClosing(const std::optional<Fence>& fence, const Fence& opening) {
    return fence && fence->character == opening.character && fence->length >= opening.length &&
           trimBlanks(fence->behind).empty();
}

std::string_view removeIndentation(std::string_view line, std::size_t indentation) {
    const std::size_t own = std::min(line.find_first_not_of(" \t"), line.size());
    return line.substr(std::min(own, indentation));
}

/// Reads the lines up to the closing fence, or to the end of the answer if the model left it out.
std::string readContent(std::string_view& rest, const Fence& opening) {
    std::string content;
    while (!rest.empty()) {
        const std::string_view line = takeLine(rest);
        if (isClosing(readFence(line), opening)) {
            break;
        }
        content += removeIndentation(line, opening.indentation);
        content += '\n';
    }
    return content;
}

std::vector<CodeBlock> readBlocks(std::string_view answer) {
    std::vector<CodeBlock> blocks;
    while (!answer.empty()) {
        const std::optional<Fence> fence = readFence(takeLine(answer));
        // "```SELECT 1```" on one line is inline code, not a block.
        if (!fence || (fence->character == '`' && fence->behind.find('`') != std::string_view::npos)) {
            continue;
        }
        const std::string_view mark = trimBlanks(fence->behind);
        blocks.push_back({lowerCase(mark.substr(0, mark.find_first_of(" \t{:"))), readContent(answer, *fence)});
    }
    return blocks;
}

template <typename Predicate>
std::vector<std::string> collectContents(const std::vector<CodeBlock>& blocks, Predicate isWanted) {
    std::vector<std::string> contents;
    for (const CodeBlock& block : blocks) {
        if (isWanted(block.mark) && !trimBlanks(block.content).empty()) {
            contents.push_back(block.content);
        }
    }
    return contents;
}

bool beginsLikeQuery(std::string_view text) {
    constexpr std::array<std::string_view, 4> kWords{"select", "with", "values", "explain"};
    const std::string firstWord = lowerCase(text.substr(0, text.find_first_of(" \t\r\n(*")));
    return std::find(kWords.begin(), kWords.end(), firstWord) != kWords.end();
}

/// Whether an answer is only a query: it begins and ends like one. "With pleasure: ..." does not.
bool isBareQuery(std::string_view text) {
    return beginsLikeQuery(text) && text.ends_with(';');
}

}  // namespace

std::vector<std::string> extractSql(std::string_view answer, const std::vector<std::string_view>& dialectMarks) {
    const std::vector<CodeBlock> blocks = readBlocks(answer);
    std::vector<std::string> sql = collectContents(blocks, [&](const std::string& mark) {
        return mark == "sql" || std::find(dialectMarks.begin(), dialectMarks.end(), mark) != dialectMarks.end();
    });
    if (sql.empty()) {
        sql = collectContents(blocks, [](const std::string& mark) { return mark.empty(); });
    }
    if (const std::string_view text = trimBlanks(answer); blocks.empty() && isBareQuery(text)) {
        sql.emplace_back(text);
    }
    return sql;
}

}  // namespace host
