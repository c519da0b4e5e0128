// What of a database the model is told.

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class KaiPromptChoice : public KaiTest {
protected:
    /// 200 tables: about 3,000 tokens.
    void makeLargeDatabase() {
        std::string script;
        for (int i = 0; i < 200; ++i) {
            script += "CREATE TABLE t" + std::to_string(i) + " (a INTEGER PRIMARY KEY, b TEXT, c TEXT);";
        }
        m_database = m_folder.makeDatabase("large.db", script);
    }

    std::string readSystemText(std::size_t question) {
        return listQuestions().at(question)["messages"][0]["content"].get<std::string>();
    }
};

TEST_F(KaiPromptChoice, TellsOfTheChosenTablesOnly) {
    const std::string prompt = run({"prompt", "--db", m_database, "--tables", "vis*"}).output;
    EXPECT_THAT(prompt, HasSubstr("CREATE TABLE `visits`"));
    EXPECT_THAT(prompt, Not(HasSubstr("CREATE TABLE `cities`")));
    EXPECT_THAT(run({"prompt", "--db", m_database, "--exclude", "visits"}).output, Not(HasSubstr("`visits`")));
    EXPECT_THAT(run({"prompt", "--db", m_database, "--exclude", "cities"}).output, Not(HasSubstr("cities")));
    EXPECT_THAT(run({"prompt", "--db", m_database, "--tables", "visits, citys"}).errors,
                HasSubstr("nothing fits the pattern 'citys'"));
    expectFailure(run({"prompt", "--db", m_database, "--tables", "none"}), 2, "leave none of the 2 tables and views");
}

TEST_F(KaiPromptChoice, KeepsToABudgetAndSaysWhatIsLeftOut) {
    start();
    const KaiOutcome outcome =
        run(Words{"chat", "--budget", "30"} + turn(), "How many cities?\nHow many cities, again?\nAnd visits?\n");
    EXPECT_THAT(readSystemText(0), HasSubstr("CREATE TABLE `cities`"));
    EXPECT_THAT(readSystemText(0), Not(HasSubstr("CREATE TABLE `visits`")));
    EXPECT_EQ(outcome.errors,
              "kai: the model is told of 1 tables and views; 1 are left out for --budget 30: visits\n"
              "kai: the model is told of 0 tables and views; 2 are left out for --budget 30: cities, visits\n");
}

TEST_F(KaiPromptChoice, KeepsToHalfOfTheModelsWindowWhereTheServiceTellsIt) {
    makeLargeDatabase();
    start().setModels({KAIEmulatedModel("model-a", {{"max_model_len", 4000}})});
    KaiOutcome outcome = run(Words{"ask"} + turn() + Words{"What is in t199?"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_LE(readSystemText(0).size(), 4U * 2000U + 1000U);
    EXPECT_THAT(readSystemText(0), HasSubstr("`t199`"));
    EXPECT_THAT(outcome.errors, HasSubstr("are left out for half of the model's window, as --budget 2000 does: "));
    EXPECT_EQ(run({"prompt", "--db", m_database, "--budget", "2000", "--question", "What is in t199?"}).output,
              readSystemText(0));

    m_emulator->setModels({KAIEmulatedModel("model-a", {})});
    outcome = run(Words{"ask"} + turn() + Words{"What is in t199?"});
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(readSystemText(1), run({"prompt", "--db", m_database}).output);
}

TEST_F(KaiPromptChoice, AsksGeminiAndOllamaForTheirModelsWindows) {
    makeLargeDatabase();
    start("google").setModels({KAIEmulatedModel("model-a", {{"inputTokenLimit", 3000}})});
    EXPECT_THAT(run(Words{"ask"} + turn() + Words{"q"}).errors, HasSubstr("as --budget 1500 does"));
    start("ollama");
    EXPECT_THAT(run(Words{"ask"} + turn() + Words{"q"}).errors, HasSubstr("as --budget 2048 does"));
}

TEST_F(KaiPromptChoice, PrintsExactlyWhatIsSentWithABudget) {
    start();
    const Words choice{"--budget", "30", "--detail"};
    ASSERT_EQ(run(Words{"ask"} + turn() + choice + Words{"How many cities?"}).code, 0);
    EXPECT_EQ(run(Words{"prompt", "--db", m_database, "--question", "How many cities?"} + choice).output,
              readSystemText(0));
}

TEST_F(KaiPromptChoice, SharesRowsOnlyWhenToldToAndShowsThemBefore) {
    start();
    m_emulator->answerWith(
        [](const KAIEmulatedTurn&) { return answerWithSql("SELECT name FROM cities ORDER BY id;"); });
    KaiOutcome outcome = run(Words{"chat", "--run", "--share-rows", "2"} + turn(), "one\ntwo\n");
    EXPECT_EQ(listQuestions().at(1)["messages"].back()["content"],
              "The first rows of the result of your SQL:\n\n| name |\n|---|\n| Łódź |\n| Graz |\n\ntwo");
    EXPECT_THAT(outcome.errors,
                HasSubstr("sent with the question, as --share-rows says: | name | |---| | Łódź | | Graz |"));
    outcome = run(Words{"chat", "--run"} + turn(), "one\ntwo\n");
    EXPECT_EQ(listQuestions().at(3)["messages"].back()["content"], "two");
    EXPECT_EQ(outcome.errors, "");
}

}  // namespace
