#include "cf/stream.h"

#include <utility>

namespace {

thread_local const CMTextStream* s_current = nullptr;

/// Makes another scope the current one while it lives.
class CurrentStream {
public:
    explicit CurrentStream(const CMTextStream* stream) noexcept : m_former(std::exchange(s_current, stream)) {}
    ~CurrentStream() { s_current = m_former; }
    CurrentStream(const CurrentStream&) = delete;
    CurrentStream& operator=(const CurrentStream&) = delete;

private:
    const CMTextStream* m_former;
};

}  // namespace

CMTextStream::CMTextStream(std::function<void(std::string_view piece)> receive)
    : m_receive(std::move(receive)), m_outer(std::exchange(s_current, this)) {}

CMTextStream::~CMTextStream() {
    s_current = m_outer;
}

void CMTextStream::tell(std::string_view piece) const {
    if (m_receive) {
        const CurrentStream none(nullptr);
        m_receive(piece);
    }
}

const CMTextStream* CMTextStream::obtainCurrent() noexcept {
    return s_current;
}
