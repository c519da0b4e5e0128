#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include "cf/stream.h"

static_assert(!std::is_copy_constructible_v<CMTextStream> && !std::is_copy_assignable_v<CMTextStream>);

TEST(CMTextStream, IsCurrentWhileItLives) {
    EXPECT_EQ(CMTextStream::obtainCurrent(), nullptr);
    {
        const CMTextStream stream([](std::string_view) {});
        EXPECT_EQ(CMTextStream::obtainCurrent(), &stream);
    }
    EXPECT_EQ(CMTextStream::obtainCurrent(), nullptr);
}

TEST(CMTextStream, CallsItsFunctionWithEachPiece) {
    std::string told;
    const CMTextStream stream([&](std::string_view piece) { told.append(piece) += '|'; });
    stream.tell("one");
    stream.tell("");
    stream.tell(std::string_view("\0two", 4));
    EXPECT_EQ(told, std::string("one||\0two|", 10));
}

TEST(CMTextStream, GivesWayToTheInnermost) {
    const CMTextStream outer([](std::string_view) {});
    {
        const CMTextStream inner([](std::string_view) {});
        EXPECT_EQ(CMTextStream::obtainCurrent(), &inner);
    }
    EXPECT_EQ(CMTextStream::obtainCurrent(), &outer);
}

TEST(CMTextStream, IsNotCurrentInsideItsFunction) {
    int calls = 0;
    const CMTextStream outer([](std::string_view) {});
    const CMTextStream stream([&](std::string_view) {
        ++calls;
        EXPECT_EQ(CMTextStream::obtainCurrent(), nullptr);
        const CMTextStream own([](std::string_view) {});
        EXPECT_EQ(CMTextStream::obtainCurrent(), &own);
    });
    stream.tell("piece");
    EXPECT_EQ(CMTextStream::obtainCurrent(), &stream);
    EXPECT_EQ(calls, 1);
}

TEST(CMTextStream, PassesOnWhatItsFunctionThrowsAndIsCurrentAfterwards) {
    const CMTextStream stream([](std::string_view) { throw std::runtime_error("from the host"); });
    EXPECT_THROW(stream.tell("piece"), std::runtime_error);
    EXPECT_EQ(CMTextStream::obtainCurrent(), &stream);
}

TEST(CMTextStream, MayHaveNoFunction) {
    const CMTextStream stream(nullptr);
    EXPECT_EQ(CMTextStream::obtainCurrent(), &stream);
    EXPECT_NO_THROW(stream.tell("piece"));
}

TEST(CMTextStream, BelongsToItsThread) {
    const CMTextStream stream([](std::string_view) {});
    const CMTextStream* seen = &stream;
    std::thread([&] { seen = CMTextStream::obtainCurrent(); }).join();
    EXPECT_EQ(seen, nullptr);
}
