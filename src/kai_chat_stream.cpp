#include "kai_chat_stream.h"

#include <utility>

namespace kai {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view removePrefix(std::string_view text, std::string_view prefix) noexcept {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

bool isBlank(std::string_view line) noexcept {
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

}  // namespace

void ChatStreamReader::read(std::string_view bytes) {
    while (!bytes.empty() && !isOver()) {
        const std::size_t end = m_form == Form::Whole ? std::string_view::npos : bytes.find('\n');
        if (end == std::string_view::npos) {
            m_line += bytes;
            return;
        }
        if (m_line.empty()) {
            readLine(bytes.substr(0, end));
        } else {
            m_line += bytes.substr(0, end);
            const std::string line = std::exchange(m_line, {});
            readLine(line);
        }
        bytes.remove_prefix(end + 1);
    }
    if (m_state == State::Broken) {
        throw Ended();
    }
}

void ChatStreamReader::readLine(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    if (m_form == Form::Unknown) {
        line = removePrefix(line, kByteOrderMark);
        recogniseForm(line);
    }
    if (m_form == Form::Whole) {
        m_line.append(line).append("\n");
    } else if (m_protocol.streaming.framing == ChatStreamFraming::Events) {
        readEventLine(line);
    } else if (!isBlank(line)) {
        m_event = line;
        readEvent();
    }
}

// The first line shows whether the answer is streamed: an event begins with the name of a field, and a line of a
// streamed answer in lines is JSON by itself.
void ChatStreamReader::recogniseForm(std::string_view line) {
    if (isBlank(line)) {
        return;
    }
    const bool isPiece = m_protocol.streaming.framing == ChatStreamFraming::Events
                             ? line.find_first_of("{[<") != line.find_first_not_of(" \t")
                             : COJson(line).getIsValidJson();
    m_form = isPiece ? Form::Pieces : Form::Whole;
}

void ChatStreamReader::readEventLine(std::string_view line) {
    constexpr std::string_view kField = "data:";
    if (line.empty()) {
        if (!m_event.empty()) {
            readEvent();
        }
        return;
    }
    if (line.starts_with(kField)) {
        if (!m_event.empty()) {
            m_event += '\n';
        }
        m_event += removePrefix(line.substr(kField.size()), " ");
    }
}

void ChatStreamReader::readEvent() {
    constexpr std::size_t kRoomToReadInPlace = 64;
    if (!m_protocol.streaming.endMark.empty() && m_event == m_protocol.streaming.endMark) {
        m_state = State::Ended;
        return;
    }
    m_event.reserve(m_event.size() + kRoomToReadInPlace);
    if (!m_json.rereadInPlace(m_event)) {
        return fail(ChatAnswer::Outcome::Invalid);
    }
    m_hasEvent = true;
    const std::size_t before = m_pieces.text.size();
    switch (m_protocol.streaming.readPiece(m_json, m_pieces)) {
        case ChatPieceKind::Nothing:
            break;
        case ChatPieceKind::Error:
            return failAsToldIn(m_event);
        case ChatPieceKind::Unsupported:
            return fail(ChatAnswer::Outcome::Unsupported);
        case ChatPieceKind::Last:
            m_state = State::Ended;
            m_hasAnswer = true;
            break;
        case ChatPieceKind::Finished:
            m_state = State::Finished;
            m_hasAnswer = true;
            break;
        case ChatPieceKind::Text:
            m_hasAnswer = true;
            break;
    }
    m_event.clear();
    if (m_pieces.text.size() != before) {
        m_stream.tell(std::string_view(m_pieces.text).substr(before));
    }
}

// Reads the document of a service that does not stream.
void ChatStreamReader::readWhole() {
    const COJson json = COJson::readInPlace(m_line);
    if (!json.getIsValidJson()) {
        return fail(ChatAnswer::Outcome::Invalid);
    }
    if (isErrorValue(json.obtainMember("error"))) {
        return failAsToldIn(m_line);
    }
    std::optional<std::string> reply = m_protocol.readReply(json);
    if (!reply) {
        return fail(ChatAnswer::Outcome::Unsupported);
    }
    m_pieces.text = *std::move(reply);
    m_hasAnswer = true;
    m_state = State::Ended;
    if (!m_pieces.text.empty()) {
        m_stream.tell(m_pieces.text);
    }
}

void ChatStreamReader::fail(ChatAnswer::Outcome outcome) {
    m_state = State::Broken;
    m_answer.outcome = outcome;
}

void ChatStreamReader::failAsToldIn(const std::string& body) {
    CMRestResourceResponse response(200, body);
    m_answer.text = m_protocol.readChatError(&response);
    fail(m_answer.text.empty() ? ChatAnswer::Outcome::Invalid : ChatAnswer::Outcome::Failed);
}

void ChatStreamReader::readRest() {
    if (m_form != Form::Whole && !m_line.empty()) {
        const std::string line = std::exchange(m_line, {});
        readLine(line);
    }
    if (m_form == Form::Whole) {
        readWhole();
    } else if (!m_event.empty() && !isOver()) {
        readEvent();
    }
}

ChatAnswer ChatStreamReader::takeAnswer(bool isWhole) {
    if (isWhole && !isOver()) {
        readRest();
    }
    if (m_state == State::Broken) {
        return std::move(m_answer);
    }
    if (!m_hasAnswer) {
        return {isWhole && (m_hasEvent || m_state == State::Ended) ? ChatAnswer::Outcome::Unsupported
                                                                   : ChatAnswer::Outcome::Invalid};
    }
    if (m_state == State::Ended || (isWhole && m_state == State::Finished)) {
        return {ChatAnswer::Outcome::Complete, std::move(m_pieces.text)};
    }
    return {ChatAnswer::Outcome::Invalid};
}

}  // namespace kai
