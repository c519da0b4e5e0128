#include "emulator_scenario.h"

#include <gmock/gmock.h>

#include <fstream>

namespace {

using testing::HasSubstr;

KAIEmulatedTurn ask(std::vector<std::string> texts) {
    KAIEmulatedTurn turn{.model = "m1", .instructions = "12345", .messages = {}, .number = 3};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        turn.messages.push_back({i % 2 == 0 ? "user" : "assistant", texts[i]});
    }
    return turn;
}

std::string answer(KAIScenario& scenario, const std::vector<std::string>& texts) {
    return answerByScenario(scenario, ask(texts)).choices.at(0).join();
}

std::string refuse(const std::string& text) {
    try {
        static_cast<void>(readScenario(text, "shop.json"));
    } catch (const KAIScenarioError& error) {
        return error.what();
    }
    return "accepted";
}

}  // namespace

TEST(KAIScenario, AnswersByTheFirstRuleThatFits) {
    auto scenario = readScenario(R"({"rules": [
        {"when": {"contains": "ORDERS"}, "answer": "orders"},
        {"when": {"matches": "^how many .*\\?$"}, "answer": "many"},
        {"when": {"history": 2}, "answer": "later"},
        {"answer": "else"}]})",
                                 "test");
    EXPECT_EQ(answer(scenario, {"List all orders"}), "orders");
    EXPECT_EQ(answer(scenario, {"How many customers?"}), "many");
    EXPECT_EQ(answer(scenario, {"a", "b", "c"}), "later");
    EXPECT_EQ(answer(scenario, {"a"}), "else");
}

TEST(KAIScenario, SaysThatNoRuleFits) {
    auto scenario = readScenario(R"({"rules": [{"when": {"contains": "x"}, "answer": "y"}]})", "test");
    EXPECT_EQ(answer(scenario, {"a"}), "The scenario has no answer to turn 3.");
}

TEST(KAIScenario, AnswersWithTheTurnsNumberWithoutAnyRule) {
    auto scenario = readScenario("{}", "test");
    EXPECT_EQ(answer(scenario, {"a"}), "Answer 3 of the emulator.");
}

TEST(KAIScenario, AppliesARuleAsOftenAsTold) {
    auto scenario = readScenario(R"({"rules": [{"times": 2, "answer": "x"}, {"answer": "y"}]})", "test");
    EXPECT_EQ(answer(scenario, {"a"}), "x");
    EXPECT_EQ(answer(scenario, {"a"}), "x");
    EXPECT_EQ(answer(scenario, {"a"}), "y");
}

TEST(KAIScenario, JoinsTheLinesOfAnAnswer) {
    auto scenario = readScenario(R"({"rules": [{"answer": ["Do this:", "```sql", "SELECT 1;", "```"]}]})", "test");
    EXPECT_EQ(answer(scenario, {"a"}), "Do this:\n```sql\nSELECT 1;\n```");
}

TEST(KAIScenario, FillsInWhatItKnowsOfTheTurnOnce) {
    auto scenario = readScenario(
        R"({"rules": [{"answer": "{history_count} {turn} {model} {instruction_bytes} {first_question} {question} {x} {"}]})",
        "test");
    EXPECT_EQ(answer(scenario, {"{model}?", "one", "two"}), "2 3 m1 5 {model}? two {x} {");
}

TEST(KAIScenario, ReadsChoicesRefusalsRunsAndModels) {
    const auto scenario = readScenario(R"({"provider": "google", "comment": "c",
        "models": ["a", {"name": "b", "members": {"created": 5}}],
        "rules": [
          {"choices": ["one", {"parts": ["two", "three"], "reasoning": "hm", "finish_reason": "STOP"}, {"text": ["x", "y"]}]},
          {"refuse": {"status": 429, "message": "slow down", "type": "t", "code": "c"}, "comment": "c"},
          {"answer": "z", "run": {"states": ["in_progress", "failed"], "error": {"code": "c", "message": "m"}}}]})",
                                       "test");
    EXPECT_EQ(scenario.provider, "google");
    ASSERT_EQ(scenario.models.size(), 2U);
    EXPECT_EQ(scenario.models[1].name, "b");
    EXPECT_EQ(scenario.models[1].members.at("created"), 5);
    const auto& choices = scenario.rules.at(0).answer.choices;
    ASSERT_EQ(choices.size(), 3U);
    EXPECT_THAT(choices[1].parts, testing::ElementsAre("two", "three"));
    EXPECT_EQ(choices[1].reasoning, "hm");
    EXPECT_EQ(choices[2].join(), "x\ny");
    ASSERT_TRUE(scenario.rules.at(1).answer.refusal);
    EXPECT_EQ(scenario.rules[1].answer.refusal->status, 429);
    EXPECT_EQ(scenario.rules[1].answer.refusal->code, "c");
    EXPECT_THAT(scenario.rules.at(2).answer.runStates, testing::ElementsAre("in_progress", "failed"));
    EXPECT_EQ(scenario.rules[2].answer.runError, std::pair(std::string("c"), std::string("m")));
}

TEST(KAIScenario, ReadsHowAReplyIsDelivered) {
    const auto scenario = readScenario(R"({"rules": [{"answer": "a", "delivery": {"body": ["x", "y"], "blank_lines": 2,
        "fault": "stall_in_body", "fault_at": 3, "stall_ms": 40, "drip": {"bytes": 5, "every_ms": 6}, "gzip": true,
        "framing": "chunked"}}]})",
                                       "test");
    LoopbackReply reply{.body = "usual"};
    scenario.rules.at(0).answer.change(reply);
    EXPECT_EQ(reply.body, "\n\nx\ny");
    EXPECT_EQ(reply.fault, LoopbackFault::StallInBody);
    EXPECT_EQ(reply.faultAt, 3U);
    EXPECT_EQ(reply.stallLimit.count(), 40);
    EXPECT_EQ(reply.dripBytes, 5U);
    EXPECT_EQ(reply.dripInterval.count(), 6);
    EXPECT_TRUE(reply.isCompressed);
    EXPECT_EQ(reply.framing, LoopbackFraming::Chunked);
}

TEST(KAIScenario, ReadsHowAnAnswerIsStreamed) {
    const auto scenario = readScenario(R"({"rules": [{"answer": "a", "stream": {"piece_characters": 3, "every_ms": 4,
        "keep_alives": 2, "fail": {"after": 1, "status": 503, "message": "m"}, "without_end": true,
        "cut": {"after": 5, "fault": "stall_in_body", "stall_ms": 40}}}, {"answer": "b", "stream": {"cut": {}}}]})",
                                       "test");
    const KAIEmulatedStream stream = scenario.rules.at(0).answer.stream.value();
    EXPECT_EQ(stream.pieceCharacters, 3U);
    EXPECT_EQ(stream.interval.count(), 4);
    EXPECT_EQ(stream.keepAlives, 2U);
    EXPECT_EQ(stream.failAfter, 1U);
    EXPECT_EQ(stream.failure.value().status, 503);
    EXPECT_TRUE(stream.isEndLeftOut);
    EXPECT_EQ(stream.faultAfter, 5U);
    EXPECT_EQ(stream.fault, LoopbackFault::StallInBody);
    EXPECT_EQ(stream.stallLimit.count(), 40);
    EXPECT_EQ(scenario.rules.at(1).answer.stream.value().fault, LoopbackFault::CutInBody);
    EXPECT_EQ(refuse(R"({"rules": [{"answer": "a", "stream": {"cut": {"fault": "close_before_reply"}}}]})"),
              "shop.json: rules[0].stream.cut.fault: must be a fault in the body");
}

TEST(KAIScenario, LeavesAStreamsPiecesToADeliveryThatOnlyDelaysThem) {
    const auto scenario = readScenario(R"({"rules": [{"answer": "a", "delivery": {"blank_lines": 1}}]})", "test");
    LoopbackReply reply{.framing = LoopbackFraming::Chunked,
                        .pieces = {"x", "y"},
                        .fault = LoopbackFault::CutInBody,
                        .faultAfterPieces = 1};
    scenario.rules.at(0).answer.change(reply);
    EXPECT_THAT(reply.pieces, testing::ElementsAre("\nx", "y"));
    EXPECT_EQ(reply.framing, LoopbackFraming::Chunked);
    EXPECT_EQ(reply.faultAfterPieces, 1U);
}

TEST(KAIScenario, SaysWhereTheJsonIsBroken) {
    EXPECT_EQ(refuse("{\n  \"rules\": [}\n"),
              "shop.json: line 2, column 13: this is not JSON; correct it there or just before");
    EXPECT_THAT(refuse(""), HasSubstr("line 1, column 1"));
}

TEST(KAIScenario, SaysWhatIsWrongAndWhere) {
    EXPECT_EQ(refuse("[]"), "shop.json: must be an object");
    EXPECT_EQ(refuse(R"({"rule": []})"),
              "shop.json: \"rule\" is not known here; use one of: provider, models, rules, comment");
    EXPECT_EQ(refuse(R"({"rules": {}})"), "shop.json: rules: must be an array");
    EXPECT_EQ(refuse(R"({"models": [1]})"), "shop.json: models[0]: must be a string, or an object with a \"name\"");
    EXPECT_EQ(refuse(R"({"models": [{"name": 1}]})"), "shop.json: models[0].name: must be a string");
    EXPECT_EQ(refuse(R"({"rules": [{"answer": ""}, {"answer": 5}]})"),
              "shop.json: rules[1].answer: must be a string or an array of strings, one a line");
    EXPECT_EQ(refuse(R"({"rules": [{"when": {"matches": "("}}]})"),
              "shop.json: rules[0].when.matches: not a regular expression (Unmatched ( or \\()");
    EXPECT_EQ(refuse(R"({"rules": [{"times": 0}]})"),
              "shop.json: rules[0].times: must be a whole number of at least 1");
    EXPECT_EQ(refuse(R"({"rules": [{"delivery": {"fault": "reset"}}]})"),
              "shop.json: rules[0].delivery.fault: \"reset\" is not known here; use one of: close_before_reply, "
              "reset_before_reply, stall_before_reply, cut_in_body, reset_in_body, stall_in_body");
    EXPECT_EQ(refuse(R"({"rules": [{"delivery": {"drip": {"bytes": 1}}}]})"),
              "shop.json: rules[0].delivery.drip: needs \"bytes\" and \"every_ms\"");
    EXPECT_EQ(refuse(R"({"rules": [{"delivery": {"gzip": 1}}]})"),
              "shop.json: rules[0].delivery.gzip: must be true or false");
    EXPECT_EQ(refuse(R"({"rules": [{"refuse": {"status": 1000}}]})"),
              "shop.json: rules[0].refuse.status: must be a number of three digits");
    EXPECT_EQ(refuse(R"({"rules": [{"run": {"states": []}}]})"),
              "shop.json: rules[0].run.states: must be an array of at least one string");
    EXPECT_EQ(refuse(R"({"rules": [{"times": 1}]})"),
              "shop.json: rules[0]: says nothing of an answer; give it one of: answer, choices, refuse, run, delivery");
    EXPECT_EQ(refuse(R"({"rules": [{"answer": "a", "choices": []}]})"),
              "shop.json: rules[0]: only one of \"answer\", \"choices\" and \"refuse\" can stand in a rule");
    EXPECT_EQ(refuse(R"({"rules": [{"answer": {"parts": "x"}}]})"),
              "shop.json: rules[0].answer.parts: must be an array of strings");
}

TEST(KAIScenario, AcceptsTheExampleOfItsDescription) {
    std::ifstream file(KAI_EMULATOR_README);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto start = text.find("```json\n") + 8;
    // The block ends at a line that is nothing but the fence; the example's answers hold fences of their own.
    auto scenario = readScenario(text.substr(start, text.find("\n```\n", start) - start), "README.md");
    EXPECT_EQ(answer(scenario, {"How many customers are there?"}),
              "Count them:\n```sql\nSELECT count(*) FROM customers;\n```");
    EXPECT_EQ(answer(scenario, {"a", "b", "What did I ask first?"}), "You asked first: a");
    EXPECT_EQ(answer(scenario, {"a", "b", "c"}), "There were 2 messages before this one.");
}

TEST(KAIScenario, SaysThatAFileCannotBeRead) {
    EXPECT_THROW(static_cast<void>(readScenarioFile("/nonexistent/scenario.json")), KAIScenarioError);
    EXPECT_THROW(static_cast<void>(readScenarioFile("/")), KAIScenarioError);
}
