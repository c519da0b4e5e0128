#include "emulator_stream.h"

#include <algorithm>
#include <iterator>

namespace {

bool startsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
}

bool isBlank(char byte) {
    return byte == ' ' || byte == '\n' || byte == '\t';
}

std::size_t measureCharacters(std::string_view text, std::size_t count) {
    std::size_t length = 0;
    for (; length < text.size(); ++length) {
        if (startsCharacter(text[length]) && count-- == 0) {
            break;
        }
    }
    return length;
}

std::size_t measureWord(std::string_view text) {
    const auto* const word = std::ranges::find_if_not(text, isBlank);
    return static_cast<std::size_t>(std::find_if(word, text.end(), isBlank) - text.begin());
}

void append(std::vector<std::string>& pieces, const std::vector<std::string>& more) {
    pieces.insert(pieces.end(), more.begin(), more.end());
}

}  // namespace

std::vector<std::string> splitText(std::string_view text, std::size_t pieceCharacters) {
    std::vector<std::string> pieces;
    while (!text.empty()) {
        const std::size_t length = pieceCharacters == 0 ? measureWord(text) : measureCharacters(text, pieceCharacters);
        pieces.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return pieces;
}

std::vector<std::string> splitChoice(const KAIEmulatedChoice& choice, const KAIEmulatedStream& stream) {
    const bool areGiven = choice.parts.size() > 1 && stream.pieceCharacters == 0;
    return areGiven ? choice.parts : splitText(choice.join(), stream.pieceCharacters);
}

std::string writeServerSentEvent(std::string_view data, std::string_view lineEnd) {
    return std::string("data: ").append(data).append(lineEnd).append(lineEnd);
}

LoopbackReply writeStreamedReply(const KAIEmulatedStream& stream, const KAIStreamedEvents& events,
                                 LoopbackFields headers) {
    LoopbackReply reply{
        .headers = std::move(headers), .framing = LoopbackFraming::Chunked, .pieceInterval = stream.interval};
    if (!events.keepAlive.empty()) {
        reply.pieces.assign(stream.keepAlives, events.keepAlive);
    }
    append(reply.pieces, events.opening);
    const std::size_t firstText = reply.pieces.size();
    append(reply.pieces, events.texts);
    if (stream.failure) {
        reply.pieces.resize(firstText + std::min(stream.failAfter, events.texts.size()));
        reply.pieces.push_back(events.writeFailure(*stream.failure));
    } else if (!stream.isEndLeftOut) {
        append(reply.pieces, events.ending);
    }
    if (stream.fault != LoopbackFault::None) {
        reply.fault = stream.fault;
        reply.faultAfterPieces = firstText + std::min(stream.faultAfter, events.texts.size());
        reply.stallLimit = stream.stallLimit;
    }
    return reply;
}
