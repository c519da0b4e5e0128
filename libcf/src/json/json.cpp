#include "cf/json.h"

#include <optional>

#include "json/json_access.h"
#include "json/json_reader.h"

/// What a document owns: the tape of a text, or a built tree.
struct COJson::Document {
    cf::ParsedDocument parsed;
    cf::JsonTree built;
    COJsonValue root;
    bool isValid = true;
    /// Kept where texts are read one after another.
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

/// Appends padding to a text, within its capacity, for the lifetime of this object.
class Padding {
public:
    explicit Padding(std::string& text) : m_text(text), m_size(text.size()) { text.append(cf::kJsonPadding, '\0'); }
    ~Padding() { m_text.resize(m_size); }
    Padding(const Padding&) = delete;
    Padding& operator=(const Padding&) = delete;

private:
    std::string& m_text;
    std::size_t m_size;
};

}  // namespace

COJson::COJson(std::string_view text) : COJson(text, false) {}

COJson COJson::readInPlace(std::string& text) {
    const std::size_t size = text.size();
    if (text.capacity() - size < cf::kJsonPadding) {
        return COJson(text);
    }
    const Padding padding(text);
    return {std::string_view(text.data(), size), true};
}

bool COJson::rereadInPlace(std::string& text) {
    if (m_document == nullptr || m_document->parser == nullptr) {
        auto document = std::make_unique<Document>();
        document->parser = std::make_unique<simdjson::dom::parser>();
        m_document = std::move(document);
    }
    const std::size_t size = text.size();
    const bool isPadded = text.capacity() - size >= cf::kJsonPadding;
    std::optional<Padding> padding;
    if (isPadded) {
        padding.emplace(text);
    }
    Document& document = *m_document;
    document.isValid = false;
    document.root = {};
    document.isValid = cf::readJson({text.data(), size}, isPadded, document.parsed, *document.parser);
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
