#ifndef TESTS_GOOD_SERVICE_H
#define TESTS_GOOD_SERVICE_H

#include <functional>
#include <mutex>
#include <string>

#include "loopback_server.h"
#include "request_rows.h"

/// Answers every request of every provider as its service does when all is well, and the requests of one row as a test
/// wants it. What the assistant says repeats what the user said last, so that an answer to another question shows.
class GoodService {
public:
    /// Makes another reply of the good one.
    using Spoiling = std::function<LoopbackReply(const LoopbackReply& good, const LoopbackRequest& request)>;

    /// The server's handler. Any thread.
    [[nodiscard]] LoopbackReply answer(const LoopbackRequest& request);

    /// From now on the requests of the row are answered by the function; null: well again.
    void spoil(const RequestRow* row, Spoiling spoiling = {});
    /// How many requests of that row have come since.
    [[nodiscard]] std::size_t countSpoiled() const;

    /// The question that is posted to the OpenAI thread next. Others are forgotten: the server may read a request that
    /// the library has given up after those of the next turn.
    void expectQuestion(const std::string& question);

    /// The answer to a question.
    [[nodiscard]] static std::string answerTo(const std::string& question) { return "You said: " + question; }

private:
    [[nodiscard]] std::string writeGoodBody(const LoopbackRequest& request);

    mutable std::mutex m_mutex;
    const RequestRow* m_row = nullptr;
    Spoiling m_spoiling;
    std::size_t m_spoiledCount = 0;
    std::string m_expectedQuestion;  ///< empty: any
    std::string m_threadQuestion;    ///< what was last posted to the OpenAI thread
};

#endif
