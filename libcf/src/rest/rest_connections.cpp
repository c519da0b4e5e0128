#include "rest/rest_connections.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

#include "rest/rest_signals.h"
#include "text/characters.h"

namespace {

using namespace std::chrono_literals;

/// How often `cancelled` is asked. An event of the network may nearly double the wait, hence well under 100 ms.
constexpr auto kQuestionInterval = 40ms;
constexpr auto kLongestWait = 10s;

/// A limit for all header lines of an exchange, interim responses included. libcurl has one of 300 KiB, which ends in
/// an error that does not say so.
constexpr std::size_t kMostHeaderBytes = std::size_t{256} * 1024;

/// A POST whose kept-alive connection breaks without an answer is sent again only this soon after it was first sent:
/// then the server was closing the idle connection. Later the server may be at work on it.
constexpr auto kReplayWindow = 1s;

/// Room kept behind a body so that a JSON parser can read it in place.
constexpr std::size_t kBodyPadding = 64;
/// As much room as an announced length gets before its bytes have come.
constexpr curl_off_t kMostReserved = curl_off_t{1024} * 1024;

void initializeCurl() {
    // Once in the process and never undone: other libraries may use libcurl too.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) {
        throw std::bad_alloc();
    }
}

/// @param name  with its colon
bool isHeaderNamed(std::string_view line, std::string_view name) noexcept {
    // The colon alone tells most lines apart.
    return line.size() >= name.size() && line[name.size() - 1] == ':' &&
           cf::isEqualIgnoringCase(line.substr(0, name.size()), name);
}

std::string_view obtainHeaderValue(std::string_view line) noexcept {
    return line.substr(line.find(':') + 1);
}

}  // namespace

class CMRestConnections::Attachment {
public:
    Attachment(CURLM* multi, CURL* easy) : m_multi(multi), m_easy(easy) {
        if (curl_multi_add_handle(multi, easy) != CURLM_OK) {
            throw std::bad_alloc();
        }
    }
    ~Attachment() {
        const CMSigpipeGuard guard;
        curl_multi_remove_handle(m_multi, m_easy);
    }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

private:
    CURLM* m_multi;
    CURL* m_easy;
};

CMRestConnections::CMRestConnections() {
    initializeCurl();
    open();
}

CMRestConnections::~CMRestConnections() {
    close();
}

void CMRestConnections::open() {
    m_multi.reset(curl_multi_init());
    m_easy.reset(curl_easy_init());
    if (!m_multi || !m_easy) {
        throw std::bad_alloc();
    }
    resetOptions();
}

void CMRestConnections::close() noexcept {
    const CMSigpipeGuard guard;
    m_easy.reset();
    m_multi.reset();
}

void CMRestConnections::useTLSSettings(CMRestTLSSettings settings) {
    if (m_hasTLSSettings && m_tlsSettings == settings) {
        return;
    }
    const bool isChanged = std::exchange(m_hasTLSSettings, true);
    m_tlsSettings = std::move(settings);
    if (isChanged) {
        // A new handle too: it holds TLS sessions, and resuming one skips the certificate's check.
        close();
        open();
    } else {
        setTLSOptions();
    }
}

CMRestOutcome CMRestConnections::run(const CMRestExchange& exchange) {
    m_receipt = Receipt{};
    m_receipt.method = exchange.method;
    m_receipt.bodyLimit = exchange.settings.maxResponseBytes;
    setRequest(exchange);
    if (m_optionError != CURLE_OK) {
        resetOptions();
        return {.failure = CMRestResult::Other};
    }
    CMRestResult failure = CMRestResult::Success;
    {
        const Attachment attachment(m_multi.get(), m_easy.get());
        failure = drive(exchange);
    }
    if (m_receipt.exception) {
        std::rethrow_exception(m_receipt.exception);
    }
    CMRestOutcome outcome = conclude(failure);
    if (failure == CMRestResult::Success && m_receipt.sendings == 1) {
        forgetRequest();
    } else {
        // libcurl counts the requests that it sends again over the handle's whole life and gives up at the sixth.
        resetOptions();
    }
    return outcome;
}

CMRestResult CMRestConnections::drive(const CMRestExchange& exchange) {
    const std::function<bool()>& isCancelled = exchange.settings.cancelled;
    const auto longestWait = std::chrono::milliseconds(isCancelled ? kQuestionInterval : kLongestWait);
    Clock::time_point nextQuestion = isCancelled ? Clock::now() + kQuestionInterval : Clock::time_point::max();
    while (true) {
        const std::optional<CMRestResult> result = advance(exchange.receiver != nullptr, longestWait);
        // The host's functions are called outside libcurl and outside the guard: they may throw, fork or run another
        // exchange.
        const bool isHandedOver = exchange.receiver != nullptr && isBodyToBeHandedOver();
        if (isHandedOver) {
            (*exchange.receiver)(m_receipt.body);
            m_receipt.body.clear();
        }
        if (result) {
            return *result;
        }
        if (isCancelled && (isHandedOver || Clock::now() >= nextQuestion)) {
            if (isCancelled()) {
                return CMRestResult::Cancelled;
            }
            nextQuestion = Clock::now() + kQuestionInterval;
        }
    }
}

std::optional<CMRestResult> CMRestConnections::advance(bool hasReceiver, std::chrono::milliseconds longestWait) {
    const CMSigpipeGuard guard;
    int runningTransfers = 0;
    if (curl_multi_perform(m_multi.get(), &runningTransfers) != CURLM_OK) {
        return CMRestResult::Other;
    }
    if (runningTransfers == 0) {
        return obtainResult();
    }
    if (hasReceiver && isBodyToBeHandedOver()) {
        return std::nullopt;
    }
    const auto wait = static_cast<int>(longestWait.count());
    const bool isSound = curl_multi_poll(m_multi.get(), nullptr, 0, wait, nullptr) == CURLM_OK;
    return isSound ? std::nullopt : std::optional(CMRestResult::Other);
}

bool CMRestConnections::isBodyToBeHandedOver() const {
    if (m_receipt.body.empty()) {
        return false;
    }
    const auto status = obtainInfo<long>(CURLINFO_RESPONSE_CODE);
    return status >= 200 && status <= 299;
}

CMRestResult CMRestConnections::obtainResult() {
    int remaining = 0;
    const CURLMsg* const message = curl_multi_info_read(m_multi.get(), &remaining);
    return message == nullptr ? CMRestResult::Other : classify(message->data.result);
}

CMRestOutcome CMRestConnections::conclude(CMRestResult failure) {
    CMRestOutcome outcome{.failure = failure, .status = 0, .body = std::move(m_receipt.body)};
    outcome.responseBytes = m_receipt.bodyBytes;
    outcome.firstByte = m_receipt.firstByte;
    m_receipt.decoder.reset();  // its window is not kept between exchanges
    outcome.status = static_cast<std::int32_t>(obtainInfo<long>(CURLINFO_RESPONSE_CODE));
    outcome.isConnectionReused = isRequestBegun() && obtainInfo<long>(CURLINFO_NUM_CONNECTS) == 0;
    const bool isInterim = outcome.status < 200;
    if (failure != CMRestResult::Success && isInterim) {
        outcome.status = 0;
    }
    return outcome;
}

bool CMRestConnections::isRequestBegun() const {
    return obtainInfo<curl_off_t>(CURLINFO_PRETRANSFER_TIME_T) > 0;
}

void CMRestConnections::makeRoom(std::size_t size) {
    std::string& body = m_receipt.body;
    const std::size_t needed = body.size() + size + kBodyPadding;
    if (needed <= body.capacity()) {
        return;
    }
    std::size_t wanted = 2 * body.capacity();
    if (body.empty()) {
        const auto announced = obtainInfo<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
        wanted = static_cast<std::size_t>(std::clamp(announced, curl_off_t{0}, kMostReserved)) + kBodyPadding;
    }
    body.reserve(std::max(needed, std::min(wanted, m_receipt.bodyLimit)));
}

std::size_t CMRestConnections::receiveHeader(char* data, std::size_t unit, std::size_t size, void* self) noexcept {
    auto& connections = *static_cast<CMRestConnections*>(self);
    Receipt& receipt = connections.m_receipt;
    const std::string_view line(data, unit * size);
    receipt.headerBytes += line.size();
    if (receipt.headerBytes > kMostHeaderBytes) {
        receipt.failure = CMRestResult::OversizedResponse;
        return 0;
    }
    connections.readHeaderLine(line);
    return line.size();
}

void CMRestConnections::readHeaderLine(std::string_view line) noexcept {
    HeaderBlock& headers = m_receipt.headers;
    if (headers.isWhole && headers.isFinal) {
        return;  // a trailer
    }
    if (line.starts_with("HTTP/")) {
        const auto status = obtainInfo<long>(CURLINFO_RESPONSE_CODE);  // 0 in a proxy's answer to CONNECT
        headers = HeaderBlock{.isFinal = status >= 200 || status == 101};
    } else if (line.starts_with('\r') || line.starts_with('\n')) {
        headers.isWhole = true;
    } else if (isHeaderNamed(line, "Transfer-Encoding:")) {
        headers.isChunked = headers.isChunked || endsChunked(obtainHeaderValue(line));
        headers.coding = addTransferCoding(headers.coding, obtainHeaderValue(line));
    } else if (isHeaderNamed(line, "Content-Length:")) {
        headers.hasLength = true;
    } else if (isHeaderNamed(line, "Content-Encoding:")) {
        headers.coding = addCoding(headers.coding, obtainHeaderValue(line));
    }
}

std::size_t CMRestConnections::receiveBody(char* data, std::size_t unit, std::size_t size, void* self) noexcept {
    auto& connections = *static_cast<CMRestConnections*>(self);
    Receipt& receipt = connections.m_receipt;
    size *= unit;
    if (size > 0 && !receipt.firstByte) {
        receipt.firstByte = Clock::now();
    }
    try {
        const bool isCoded = receipt.headers.coding != CMRestCoding::None;
        const bool isKept = isCoded ? connections.keepDecoded(data, size) : connections.keepBody({data, size});
        return isKept ? size : 0;
    } catch (...) {
        receipt.exception = std::current_exception();
        return 0;
    }
}

bool CMRestConnections::keepBody(std::string_view bytes) {
    if (bytes.size() > m_receipt.bodyLimit - m_receipt.bodyBytes) {
        m_receipt.failure = CMRestResult::OversizedResponse;
        return false;
    }
    makeRoom(bytes.size());
    m_receipt.body.append(bytes);
    m_receipt.bodyBytes += bytes.size();
    return true;
}

bool CMRestConnections::keepDecoded(char* bytes, std::size_t size) {
    std::unique_ptr<CMRestDecoder>& decoder = m_receipt.decoder;
    if (m_receipt.headers.coding == CMRestCoding::Unknown) {
        m_receipt.failure = CMRestResult::MalformedResponse;
        return false;
    }
    if (size == 0) {
        return true;
    }
    if (!decoder) {
        decoder = std::make_unique<CMRestDecoder>(m_receipt.headers.coding, *bytes);
    }
    decoder->feed(bytes, size);
    for (std::string_view piece = decoder->decode(); !piece.empty(); piece = decoder->decode()) {
        if (!keepBody(piece)) {
            return false;
        }
    }
    if (decoder->isMalformed()) {
        m_receipt.failure = CMRestResult::MalformedResponse;
    }
    return !decoder->isMalformed();
}

std::size_t CMRestConnections::sendBody(char* target, std::size_t unit, std::size_t count, void* self) noexcept {
    return static_cast<CMRestConnections*>(self)->m_bodyReader.read(target, unit * count);
}

int CMRestConnections::seekBody(void* self, curl_off_t offset, int origin) noexcept {
    const bool isFound = origin == SEEK_SET && offset >= 0 &&
                         static_cast<CMRestConnections*>(self)->m_bodyReader.seek(static_cast<std::size_t>(offset));
    return isFound ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

int CMRestConnections::permitSending(void* self, char* /*remoteAddress*/, char* /*localAddress*/, int /*remotePort*/,
                                     int /*localPort*/) noexcept {
    Receipt& receipt = static_cast<CMRestConnections*>(self)->m_receipt;
    const Clock::time_point now = Clock::now();
    // What another connection, closed for its age, or a proxy may have left.
    receipt.isTLSClosed = false;
    receipt.headers = HeaderBlock{};
    if (++receipt.sendings == 1) {
        receipt.firstSending = now;
    }
    if (receipt.method == CMRestMethod::Post && now - receipt.firstSending > kReplayWindow) {
        receipt.failure = CMRestResult::BrokenConnection;
        return CURL_PREREQFUNC_ABORT;
    }
    return CURL_PREREQFUNC_OK;
}

CMRestConnections::Lease::Lease(ICSHTTPPoolCenter* pool) : m_pool(pool) {
    if (m_pool != nullptr) {
        m_connections = std::move(m_pool->m_connections);
    }
    if (!m_connections) {
        m_connections = std::make_unique<CMRestConnections>();
    }
}

void CMRestConnections::Lease::giveBack() noexcept {
    if (m_pool != nullptr) {
        m_pool->m_connections = std::move(m_connections);
    }
}
