#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QTableWidget>
#include <QtWidgets/QTextBrowser>
#include <fstream>
#include <sstream>

#include "chat_panel.h"
#include "emulator_scenario.h"
#include "kai_emulator.h"

// The tests use the panel as a user does, with clicks and keys, and check what it shows. The working directory must
// contain shop.db.

namespace {

std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class ChatPanelTest : public testing::Test {
protected:
    ChatPanelTest() { QFile::remove(QStringLiteral("saved.kai")); }

    void SetUp() override {
        ChatService service;
        service.host = QString::fromStdString(m_emulator.obtainHost());
        service.key = QStringLiteral("key");
        service.caFile = QString::fromStdString(m_emulator.obtainServer().obtainCAFile());
        m_panel = std::make_unique<ChatPanel>(service, QList<ChatPanel::Database>{{"Shop", "shop.db"}});
        m_panel->resize(760, 720);
        m_panel->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_panel.get()));
        ASSERT_TRUE(QTest::qWaitFor([this] { return find<QComboBox>("models").count() > 0; }, kPatience));
    }

    template <class Widget>
    Widget& find(const char* name) {
        return *m_panel->findChild<Widget*>(QString::fromLatin1(name));
    }

    QString obtainStatus() { return find<QLabel>("status").text(); }
    QString obtainConversation() { return find<QTextBrowser>("conversation").toPlainText(); }

    void click(const char* button) { QTest::mouseClick(&find<QPushButton>(button), Qt::LeftButton); }

    bool waitForConversation(const QString& part) {
        return QTest::qWaitFor([&] { return obtainConversation().contains(part); }, kPatience);
    }

    bool waitForStatus(const QString& part) {
        return QTest::qWaitFor([&] { return obtainStatus().contains(part); }, kPatience);
    }

    void chooseDatabase() {
        QTest::keyClick(&find<QComboBox>("databases"), Qt::Key_Down);
        ASSERT_TRUE(waitForStatus("tables are told to the model")) << obtainStatus().toStdString();
    }

    void type(const QString& question) {
        find<QLineEdit>("question").clear();
        QTest::keyClicks(&find<QLineEdit>("question"), question);
    }

    bool isTurnRunning() { return find<QPushButton>("cancel").isEnabled(); }

    void ask(const QString& question) {
        type(question);
        click("ask");
        ASSERT_TRUE(isTurnRunning());
        ASSERT_TRUE(QTest::qWaitFor([this] { return !isTurnRunning(); }, kPatience));
    }

    /// Types a name into the file dialog that a button opens, and accepts it with the Return key.
    void clickAndChooseFile(const char* button, const QString& file) {
        QTimer timer;
        const QString path = QDir::current().absoluteFilePath(file);
        QObject::connect(&timer, &QTimer::timeout, &timer, [&path] {
            QWidget* const dialog = QApplication::activeModalWidget();
            auto* const name = dialog ? dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")) : nullptr;
            if (name == nullptr && dialog != nullptr) {
                dialog->close();  // a complaint of the file dialog; the test then misses the file
            } else if (name != nullptr && name->text() == path) {
                QTest::keyClick(name, Qt::Key_Return);  // without effect until the dialog is shown
            } else if (name != nullptr) {
                // The dialog reads its folder on a thread. A completion from there would change what is typed.
                name->setCompleter(nullptr);
                name->clear();
                QTest::keyClicks(name, path);
            }
        });
        timer.start(20);
        click(button);
    }

    static constexpr int kPatience = 30000;  // milliseconds; reached by failures only

    KAIEmulator m_emulator{{.key = "key"}};
    std::unique_ptr<ChatPanel> m_panel;
};

TEST_F(ChatPanelTest, ShowsTheAnswerWithItsSQLSetApartAndTheResultAsATable) {
    m_emulator.playScenario(readScenarioFile(KAI_SHOP_FOLDER "/shop-scenario.json"));
    chooseDatabase();
    ask("How many customers do we have in each country?");
    EXPECT_TRUE(obtainConversation().contains("How many customers")) << obtainConversation().toStdString();
    EXPECT_TRUE(obtainConversation().contains("country by country"));
    EXPECT_FALSE(obtainConversation().contains("```"));
    EXPECT_TRUE(find<QPlainTextEdit>("sql").toPlainText().startsWith("SELECT country"));

    click("run");
    ASSERT_TRUE(waitForStatus("7 rows")) << obtainStatus().toStdString();
    auto& table = find<QTableWidget>("table");
    ASSERT_EQ(table.rowCount(), 7);
    EXPECT_EQ(table.item(0, 0)->text(), "FR");
    EXPECT_EQ(table.item(0, 1)->text(), "64");
    EXPECT_TRUE(m_panel->grab().save(QStringLiteral("chat-window.png")));
    QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, table.visualItemRect(table.item(0, 0)).center());
    EXPECT_EQ(table.findChild<QLineEdit*>(), nullptr) << "a cell can be changed";
}

TEST_F(ChatPanelTest, ShowsTheAnswerWhileItArrives) {
    m_emulator.answerWith([](const KAIEmulatedTurn&) {
        return KAIEmulatedAnswer::say("One two three four five six seven eight nine ten.");
    });
    m_emulator.intercept({.method = "POST", .change = [](LoopbackReply& reply) {
                              reply.fault = LoopbackFault::StallInBody;
                              reply.faultAfterPieces = reply.pieces.size() / 2;
                          }});
    chooseDatabase();
    type("Count");
    click("ask");
    ASSERT_TRUE(waitForConversation("One")) << obtainConversation().toStdString();
    EXPECT_TRUE(isTurnRunning());
    EXPECT_FALSE(obtainConversation().contains("ten."));
    m_emulator.obtainServer().releaseStalls();
    ASSERT_TRUE(QTest::qWaitFor([this] { return !isTurnRunning(); }, kPatience));
    EXPECT_TRUE(obtainConversation().contains("ten.")) << obtainConversation().toStdString();
}

TEST_F(ChatPanelTest, AsksTheModelThatIsChosen) {
    chooseDatabase();
    auto& models = find<QComboBox>("models");
    ASSERT_GT(models.count(), 1);
    QTest::keyClick(&models, Qt::Key_Down);
    ask("Which model are you?");
    const std::string body = m_emulator.obtainServer().requests().back().body;
    EXPECT_NE(body.find("\"model\":\"" + models.itemText(1).toStdString() + '"'), std::string::npos) << body;
}

TEST_F(ChatPanelTest, AsksWithTheReturnKeyAndShowsAnErrorAsItIs) {
    m_emulator.replyNext({.status = 429, .body = R"({"error": {"message": "<b>Rate limit</b> reached"}})"});
    chooseDatabase();
    type("How many orders are there?");
    QTest::keyClick(&find<QLineEdit>("question"), Qt::Key_Return);
    ASSERT_TRUE(waitForStatus("<b>Rate limit</b> reached")) << obtainStatus().toStdString();
    EXPECT_EQ(obtainConversation(), "");
    EXPECT_EQ(find<QLineEdit>("question").text(), "How many orders are there?") << "it can be asked again";
}

TEST_F(ChatPanelTest, CancelsATurn) {
    LoopbackReply stalled;
    stalled.fault = LoopbackFault::StallBeforeReply;
    m_emulator.replyNext(stalled);
    chooseDatabase();
    type("How many orders are there?");
    click("ask");
    ASSERT_TRUE(isTurnRunning());
    EXPECT_FALSE(find<QPushButton>("ask").isEnabled());
    ASSERT_TRUE(m_emulator.obtainServer().waitForRequests(2));
    click("cancel");
    ASSERT_TRUE(waitForStatus("Cancelled")) << obtainStatus().toStdString();
    EXPECT_EQ(obtainConversation(), "");
    EXPECT_TRUE(find<QPushButton>("ask").isEnabled());
}

TEST_F(ChatPanelTest, EndsWhileATurnRuns) {
    LoopbackReply stalled;
    stalled.fault = LoopbackFault::StallBeforeReply;
    m_emulator.replyNext(stalled);
    chooseDatabase();
    type("How many orders are there?");
    click("ask");
    ASSERT_TRUE(m_emulator.obtainServer().waitForRequests(2));
    m_panel.reset();
    SUCCEED() << "the worker ended with its turn";
}

TEST_F(ChatPanelTest, RunsNoSQLThatWrites) {
    m_emulator.answerWith(
        [](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say("```sql\nDELETE FROM customers;\n```"); });
    chooseDatabase();
    ask("Delete everything");
    click("run");
    ASSERT_TRUE(waitForStatus("only statements that read")) << obtainStatus().toStdString();
}

TEST_F(ChatPanelTest, OpensTheDatabaseForReadingOnly) {
    m_emulator.answerWith([](const KAIEmulatedTurn&) {
        return KAIEmulatedAnswer::say("```sql\nWITH old AS (SELECT 1) DELETE FROM customers;\n```");
    });
    chooseDatabase();
    ask("Delete everything");
    click("run");
    ASSERT_TRUE(waitForStatus("readonly database")) << obtainStatus().toStdString();
}

TEST_F(ChatPanelTest, SavesAConversationAndGoesOnWithIt) {
    m_emulator.answerWith([](const KAIEmulatedTurn& turn) {
        return KAIEmulatedAnswer::say("There were " + std::to_string(turn.messages.size()) + " messages.");
    });
    chooseDatabase();
    ask("First question");
    const QString first = obtainConversation();
    clickAndChooseFile("save", "saved.kai");
    ASSERT_TRUE(waitForStatus("Saved")) << obtainStatus().toStdString();
    EXPECT_EQ(readFile("saved.kai").find("\"key\""), std::string::npos) << "no key is saved";

    ask("Second question");
    EXPECT_NE(obtainConversation(), first);
    clickAndChooseFile("restore", "saved.kai");
    ASSERT_TRUE(waitForStatus("Restored")) << obtainStatus().toStdString();
    EXPECT_EQ(obtainConversation(), first);
    ask("Third question");
    EXPECT_TRUE(obtainConversation().endsWith("There were 3 messages.")) << obtainConversation().toStdString();
}

TEST_F(ChatPanelTest, RestoresNoConversationOfAnotherService) {
    std::ofstream("saved.kai") << R"({"api_host": "elsewhere.example", "model": "m", "messages": []})";
    chooseDatabase();
    clickAndChooseFile("restore", "saved.kai");
    ASSERT_TRUE(waitForStatus("another service")) << obtainStatus().toStdString();
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
