#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>

#include "fuzz_inputs.h"
#include "fuzz_targets.h"

// A small stand-in for a fuzzer in every run of the tests: the corpus, mangled by a generator with a fixed seed, is fed
// to the readers. They must take it; a sanitizer build sees what they do with it.

/// How a target is named by a failing test.
void PrintTo(const FuzzTarget& target, std::ostream* out);

void PrintTo(const FuzzTarget& target, std::ostream* out) {
    *out << target.name;
}

namespace {

class Mutator {
public:
    Mutator(std::uint64_t seed, std::vector<std::string> corpus) : m_engine(seed), m_corpus(std::move(corpus)) {}

    std::string makeInput() {
        std::string text = m_corpus[pick(m_corpus.size())];
        for (std::size_t times = 1 + pick(3); times > 0; --times) {
            mangle(text);
        }
        return text;
    }

private:
    std::size_t pick(std::size_t count) { return static_cast<std::size_t>(m_engine() % count); }

    void mangle(std::string& text) {
        const std::size_t place = pick(text.size() + 1);
        const std::size_t length = std::min(pick(16), text.size() - place);
        switch (pick(9)) {
            case 0:
                text.erase(place, length);
                break;
            case 1:
                text.insert(place, text.substr(place, length));
                break;
            case 2:
                text.insert(place, 1, static_cast<char>(pick(256)));
                break;
            case 3:
                text.replace(place, length, takeToken());
                break;
            case 4:
                text.resize(place);
                break;
            case 5: {
                const std::string& other = m_corpus[pick(m_corpus.size())];
                text.replace(place, std::string::npos, other.substr(pick(other.size() + 1)));
                break;
            }
            case 6:
                if (place < text.size()) {
                    text[place] = static_cast<char>(text[place] ^ (1 << pick(8)));
                }
                break;
            default:
                changeLetter(text, place);
        }
    }

    /// Keys and values change so, and the text stays JSON.
    void changeLetter(std::string& text, std::size_t place) {
        const std::size_t letter = text.find_first_of("abcdefghijklmnopqrstuvwxyz", place);
        if (letter != std::string::npos) {
            text[letter] = static_cast<char>('a' + pick(26));
        }
    }

    const std::string& takeToken() {
        static const std::vector<std::string> tokens{
            "null", "true",   "-0",       "1e999",       "18446744073709551616", "\"\"",    "[]",
            "{}",   "[",      "}",        "\"\\ud800\"", "\"\\u0000\"",          "\xff",    std::string(1, '\0'),
            ",",    "\"a\":", "\"role\"", "\"text\"",    "\"messages\":[",       "\\u00e9", std::string(600, '['),
        };
        return tokens[pick(tokens.size())];
    }

    std::mt19937_64 m_engine;
    std::vector<std::string> m_corpus;
};

using FuzzMutation = testing::TestWithParam<FuzzTarget>;

INSTANTIATE_TEST_SUITE_P(Targets, FuzzMutation, testing::ValuesIn(obtainFuzzTargets()),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace

TEST_P(FuzzMutation, IsTakenByTheReader) {
    std::vector<std::string> corpus = readInputs(std::filesystem::path(KAI_FUZZ_CORPUS) / GetParam().name);
    ASSERT_FALSE(corpus.empty());
    Mutator mutator(20'240'607, std::move(corpus));
    for (int i = 0; i < GetParam().mutationCount; ++i) {
        GetParam().run(mutator.makeInput());
    }
}
