#include "chat_worker.h"

#include <cf/stream.h>

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

namespace {

constexpr const char* kConnectionName = "chat";
constexpr int kMostRows = 500;
constexpr qint64 kLargestConversation = qint64{16} * 1024 * 1024;

/// The worker of this thread. The HTTP settings are the process's; their functions find the worker that they are about
/// here.
thread_local ChatWorker* t_worker = nullptr;

void writeTable(COJsonWriter& writer, const QSqlDatabase& connection, const QString& name) {
    QSqlQuery columns(connection);
    columns.prepare(QStringLiteral("SELECT name, type, pk FROM pragma_table_info(?)"));
    columns.addBindValue(name);
    columns.exec();
    std::vector<std::string> keyColumns;
    writer.beginObject();
    writer.writeMember("name", name.toStdString());
    writer.writeKey("fields");
    writer.beginArray();
    while (columns.next()) {
        const std::string column = columns.value(0).toString().toStdString();
        writer.beginObject();
        writer.writeMember("name", column);
        writer.writeMember("type", columns.value(1).toString().toStdString());
        writer.endObject();
        if (columns.value(2).toInt() > 0) {
            keyColumns.push_back(column);
        }
    }
    writer.endArray();
    writer.writeKey("pkeys");
    writer.beginArray();
    for (const std::string& column : keyColumns) {
        writer.writeString(column);
    }
    writer.endArray();
    writer.endObject();
}

void writeTables(COJsonWriter& writer, const char* kind, const QSqlDatabase& connection, QSql::TableType type) {
    writer.writeKey(kind);
    writer.beginArray();
    for (const QString& name : connection.tables(type)) {
        writeTable(writer, connection, name);
    }
    writer.endArray();
}

/// The structure of the database, in the form that "db_structure" takes.
std::string writeStructure(const QSqlDatabase& connection) {
    std::string text;
    COJsonWriter writer(text);
    writer.beginArray();
    writer.beginObject();
    writer.writeKey("schemas");
    writer.beginArray();
    writer.beginObject();
    writeTables(writer, "tables", connection, QSql::Tables);
    writeTables(writer, "views", connection, QSql::Views);
    writer.endObject();
    writer.endArray();
    writer.endObject();
    writer.endArray();
    writer.finish();
    return text;
}

/// Whether a statement reads. The read-only connection refuses what writes; this refuses also what could open another
/// file or change the connection (ATTACH, PRAGMA).
bool isQuery(const QString& sql) {
    static const QRegularExpression beginning(QStringLiteral("^\\s*(SELECT|WITH|VALUES)\\b"),
                                              QRegularExpression::CaseInsensitiveOption);
    return beginning.match(sql).hasMatch();
}

ChatTable readTable(QSqlQuery& query) {
    ChatTable table;
    const QSqlRecord record = query.record();
    for (int i = 0; i < record.count(); ++i) {
        table.columns += record.fieldName(i);
    }
    while (query.next()) {
        if (table.rows.size() == kMostRows) {
            table.isTruncated = true;
            break;
        }
        QStringList row;
        for (int i = 0; i < record.count(); ++i) {
            row += query.isNull(i) ? QStringLiteral("NULL") : query.value(i).toString();
        }
        table.rows += row;
    }
    return table;
}

/// Why a text may not be restored; empty: it may. Restoring takes over the host in the text, and the user's key would
/// be sent there.
QString findObjection(const QByteArray& text, const std::string& ownHost) {
    const COJson json(std::string_view(text.constData(), static_cast<std::size_t>(text.size())));
    if (!json.obtainMember("messages").isArray()) {
        return QStringLiteral("This file holds no conversation.");
    }
    if (json.obtainMember("api_host").obtainString() != ownHost) {
        return QStringLiteral("This conversation was held with another service.");
    }
    return {};
}

QList<ChatMessage> listMessages(const QByteArray& text) {
    QList<ChatMessage> messages;
    const COJson json(std::string_view(text.constData(), static_cast<std::size_t>(text.size())));
    for (const COJsonValue message : json.obtainMember("messages").obtainItems()) {
        const std::string_view content = message.obtainMember("content").obtainString();
        messages.append({message.obtainMember("role").obtainString() == "user",
                         QString::fromUtf8(content.data(), static_cast<qsizetype>(content.size()))});
    }
    return messages;
}

}  // namespace

ChatWorker::ChatWorker(ChatService service) : m_service(std::move(service)) {}

ChatWorker::~ChatWorker() {
    m_session.reset();
    m_assistant.reset();
    closeConnection();
    t_worker = nullptr;
}

void ChatWorker::begin() {
    t_worker = this;
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_service.caFile.toStdString();
    settings.cancelled = [] { return t_worker != nullptr && t_worker->m_isCancelRequested; };
    KAISetHTTPSettings(settings);
    m_assistant.reset(KAICreateAssistant(m_service.type, cfCreateHTTPPoolCenter(), m_service.key.toStdString(),
                                         m_service.host.toStdString()));
}

void ChatWorker::listModels() {
    const auto [models, error] = m_assistant->obtainAvailableModels();
    QStringList names;
    for (const std::string& model : models) {
        names += QString::fromStdString(model);
    }
    emit modelsListed(names, QString::fromStdString(error));
}

void ChatWorker::openDatabase(const QString& file) {
    m_session.reset();
    closeConnection();
    m_connection = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QString::fromLatin1(kConnectionName));
    m_connection.setDatabaseName(file);
    m_connection.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));  // a model's SQL only ever reads
    if (!m_connection.open()) {
        emit databaseOpened(0, m_connection.lastError().text());
        return;
    }
    describeDatabase();
    auto [session, error] = m_assistant->createSession();
    m_session.reset(session);
    emit databaseOpened(static_cast<int>(m_connection.tables(QSql::Tables).size()), QString::fromStdString(error));
}

void ChatWorker::describeDatabase() {
    m_assistant->setAssistantProperties([this](IKAIProperties* properties) {
        properties->setProperty("user_instructions", "Answer with one SQL statement of SQLite in a block marked sql.");
        properties->setProperty("db_structure", writeStructure(m_connection));
    });
}

void ChatWorker::beginTurn(const QString& model, const QString& question) {
    // Here and not in ask(): the user may cancel before the worker's thread has come to the question.
    m_isCancelRequested = false;
    QMetaObject::invokeMethod(this, [this, model, question] { ask(model, question); });
}

void ChatWorker::ask(const QString& model, const QString& question) {
    m_assistant->setAssistantProperties(
        [&](IKAIProperties* properties) { properties->setProperty("model", model.toStdString()); });
    const CMTextStream stream([this](std::string_view piece) {
        emit pieceArrived(QString::fromUtf8(piece.data(), static_cast<qsizetype>(piece.size())));
    });
    const auto [message, error] = m_assistant->addMessage(m_session.get(), question.toStdString());
    const KAIPtr<IKAIMessage> answer(message);
    QString text;
    if (answer) {
        for (IKAIMessageSection* section : answer->obtainSections()) {
            const std::string_view part = section->obtainText();
            text += QString::fromUtf8(part.data(), static_cast<qsizetype>(part.size()));
        }
    }
    // A turn that failed after the user asked to cancel it was cancelled.
    emit turnEnded(text, QString::fromStdString(error), !answer && m_isCancelRequested);
}

void ChatWorker::runQuery(const QString& sql) {
    if (!isQuery(sql)) {
        emit queryEnded({}, QStringLiteral("This is not a query: only statements that read are run."));
        return;
    }
    QSqlQuery query(m_connection);
    query.setForwardOnly(true);
    if (!query.exec(sql)) {
        emit queryEnded({}, query.lastError().text());
        return;
    }
    emit queryEnded(readTable(query), {});
}

void ChatWorker::save(const QString& file) {
    const std::string text = m_session ? m_session->serializeSession() : "";
    QSaveFile target(file);  // replaces the old file only when it is complete
    const bool isSaved =
        target.open(QIODevice::WriteOnly) &&
        target.write(text.data(), static_cast<qint64>(text.size())) == static_cast<qint64>(text.size()) &&
        target.setPermissions(QFile::ReadOwner | QFile::WriteOwner) && target.commit();
    emit saved(isSaved ? QString() : target.errorString());
}

void ChatWorker::restore(const QString& file) {
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly) || source.size() > kLargestConversation) {
        emit restored({}, source.isOpen() ? QStringLiteral("This file is too large.") : source.errorString());
        return;
    }
    const QByteArray text = source.readAll();
    const COJson own(m_session ? m_session->serializeSession() : std::string());
    QString objection = findObjection(text, std::string(own.obtainMember("api_host").obtainString()));
    if (objection.isEmpty()) {
        auto [session, error] = m_assistant->restoreSession(text.toStdString());
        objection = QString::fromStdString(error);
        if (session != nullptr) {
            m_session.reset(session);
            describeDatabase();  // restoring took over the structure in the text; the open database counts
        }
    }
    emit restored(objection.isEmpty() ? listMessages(text) : QList<ChatMessage>(), objection);
}

void ChatWorker::closeConnection() {
    if (m_connection.isValid()) {
        m_connection = QSqlDatabase();
        QSqlDatabase::removeDatabase(QString::fromLatin1(kConnectionName));
    }
}
