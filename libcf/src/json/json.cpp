#include "cf/json.h"

#include "json/json_access.h"
#include "json/json_reader.h"

/// What a document owns: the tape of a parsed text, or a built tree.
struct COJson::Document {
    cf::ParsedDocument parsed;
    cf::JsonTree built;
    COJsonValue root;
    bool isValid = true;
    /// Null until rereadInPlace(), which reuses it.
    std::unique_ptr<simdjson::dom::parser> parser;
};

ICOJsonValue::~ICOJsonValue() = default;

std::string ICOJsonValue::obtainJsonString() const {
    std::string text;
    COJsonWriter writer(text);
    writeJson(writer);
    writer.finish();
    return text;
}

std::vector<COJsonPiece> ICOJsonValue::obtainJsonPieces() const {
    auto text = std::make_shared<const std::string>(obtainJsonString());
    const std::string_view whole = *text;
    return {{whole, std::move(text)}};
}

COJson::COJson() : m_document(std::make_unique<Document>()) {
    m_document->root = COJsonAccess::make<COJsonValue>(&m_document->built.addRoot());
    m_document->root.setObject();
}

namespace {

/// Appends padding to a text for the lifetime of this object, if the text's capacity allows it.
class Padding {
public:
    explicit Padding(std::string& text) : m_text(text), m_size(text.size()) {
        if (text.capacity() - m_size >= cf::kJsonPadding) {
            text.append(cf::kJsonPadding, '\0');
        }
    }
    ~Padding() { m_text.resize(m_size); }
    Padding(const Padding&) = delete;
    Padding& operator=(const Padding&) = delete;

    [[nodiscard]] std::string_view obtainText() const noexcept { return {m_text.data(), m_size}; }
    [[nodiscard]] bool isThere() const noexcept { return m_text.size() > m_size; }

private:
    std::string& m_text;
    std::size_t m_size;
};

}  // namespace

COJson::COJson(std::string_view text) : COJson(text, false) {}

COJson COJson::readInPlace(std::string& text) {
    const Padding padding(text);
    return {padding.obtainText(), padding.isThere()};
}

bool COJson::rereadInPlace(std::string& text) {
    if (m_document == nullptr || m_document->parser == nullptr) {
        auto document = std::make_unique<Document>();
        document->parser = std::make_unique<simdjson::dom::parser>();
        m_document = std::move(document);
    }
    const Padding padding(text);
    Document& document = *m_document;
    document.isValid = false;
    document.root = {};
    document.isValid = cf::readJson(padding.obtainText(), padding.isThere(), document.parsed, *document.parser);
    if (document.isValid) {
        document.root = COJsonAccess::make<COJsonValue>(cf::TapePlace(document.parsed));
    }
    return document.isValid;
}

COJson::COJson(std::string_view text, bool isPadded) : m_document(std::make_unique<Document>()) {
    simdjson::dom::parser parser;
    if (cf::readJson(text, isPadded, m_document->parsed, parser)) {
        m_document->root = COJsonAccess::make<COJsonValue>(cf::TapePlace(m_document->parsed));
    } else {
        m_document.reset();
    }
}

COJson::~COJson() = default;
COJson::COJson(COJson&& other) noexcept = default;
COJson& COJson::operator=(COJson&& other) noexcept = default;

bool COJson::getIsValidJson() const noexcept {
    return m_document != nullptr && m_document->isValid;
}

COJsonValue COJson::obtainRoot() const noexcept {
    return m_document != nullptr ? m_document->root : COJsonValue();
}

void COJson::writeJson(COJsonWriter& writer) const {
    obtainRoot().writeJson(writer);
}
