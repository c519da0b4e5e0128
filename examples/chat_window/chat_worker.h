#ifndef CHAT_WORKER_H
#define CHAT_WORKER_H

#include <kai.h>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtSql/QSqlDatabase>
#include <atomic>

/// The service that answers, and how to reach it.
struct ChatService {
    KAIAssistantType type = KAIAssistantType::DEEPSEEK;
    QString host{};    ///< empty: the provider's public service
    QString key{};     ///< the user's key
    QString caFile{};  ///< PEM file of trusted certificates; empty: the system's
};

/// One message of a conversation.
struct ChatMessage {
    bool isUser = false;
    QString text{};
};

/// The first rows of a query's result, as texts.
struct ChatTable {
    QStringList columns{};
    QList<QStringList> rows{};
    bool isTruncated = false;  ///< whether the result has more rows
};

/// Does everything that takes time: it owns the assistant with its conversation, and a read-only connection to the
/// database. Move it to a thread of its own and call its slots through QMetaObject::invokeMethod, begin() first. It
/// must be destroyed on that thread. Only beginTurn() and requestCancel() are called from the window's thread.
class ChatWorker : public QObject {
    Q_OBJECT

public:
    explicit ChatWorker(ChatService service);
    ~ChatWorker() override;

    /// Asks a question on the worker's thread, and returns at once.
    void beginTurn(const QString& model, const QString& question);
    /// Ends what runs: a turn, or the listing of models.
    void requestCancel() noexcept { m_isCancelRequested = true; }

public slots:
    void begin();
    void listModels();
    /// Opens a SQLite file and begins a new conversation about it.
    void openDatabase(const QString& file);
    /// Runs one statement that reads.
    void runQuery(const QString& sql);
    void save(const QString& file);
    void restore(const QString& file);

signals:
    void modelsListed(const QStringList& models, const QString& error);
    void databaseOpened(int tableCount, const QString& error);
    /// A piece of the answer, as it arrives.
    void pieceArrived(const QString& piece);
    /// The end of a turn: the whole answer, or why there is none.
    void turnEnded(const QString& answer, const QString& error, bool isCancelled);
    void queryEnded(const ChatTable& table, const QString& error);
    void saved(const QString& error);
    void restored(const QList<ChatMessage>& messages, const QString& error);

private:
    void ask(const QString& model, const QString& question);
    void describeDatabase();
    void closeConnection();

    ChatService m_service;
    std::atomic<bool> m_isCancelRequested{false};
    QSqlDatabase m_connection;
    KAIPtr<IKAIAssistant> m_assistant;
    KAIPtr<IKAISession> m_session;  // declared after its assistant, so it is freed before
};

#endif
