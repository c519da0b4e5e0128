#ifndef TESTS_STRUCTURE_GENERATOR_H
#define TESTS_STRUCTURE_GENERATOR_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

/// Makes descriptions of databases, the same for the same seed. Some of their values are of a wrong type, and some
/// members missing, as often as told.
class StructureGenerator {
public:
    using Json = nlohmann::ordered_json;

    /// @param wrongPercent  of a hundred values, how many are wrong
    StructureGenerator(std::uint64_t seed, std::uint32_t wrongPercent) : m_engine(seed), m_wrongPercent(wrongPercent) {}

    Json makeStructure();

private:
    std::uint32_t pick(std::uint32_t count) { return static_cast<std::uint32_t>(m_engine() % count); }
    bool isOnce(std::uint32_t of) { return pick(of) == 0; }

    Json makeName();
    Json makeWrong();
    /// The value, or now and then a wrong one.
    Json spoil(Json value);
    void add(Json& object, const char* key, Json value);
    void addOptional(Json& object, const char* key, Json value);
    template <class Make>
    Json makeArray(std::uint32_t most, Make make);
    Json makeNames();
    Json makeField();
    Json makeForeignKey();
    Json makeObject();
    Json makeSchema();
    Json makeCatalog();

    std::mt19937_64 m_engine;
    std::uint32_t m_wrongPercent;
};

#endif
