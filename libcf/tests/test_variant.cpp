#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "cf/variant.h"

namespace {

using ValueType = CMVariant::ValueType;

TEST(CMVariant, IsACopyableAndMovableValue) {
    static_assert(std::is_copy_constructible_v<CMVariant> && std::is_copy_assignable_v<CMVariant>);
    static_assert(std::is_nothrow_move_constructible_v<CMVariant> && std::is_nothrow_move_assignable_v<CMVariant>);
    static_assert(std::is_nothrow_default_constructible_v<CMVariant>);
}

TEST(CMVariant, TellsItsType) {
    EXPECT_EQ(CMVariant().getValueType(), ValueType::Null);
    EXPECT_EQ(CMVariant("text").getValueType(), ValueType::String);
    EXPECT_EQ(CMVariant(std::string("text")).getValueType(), ValueType::String);
    EXPECT_EQ(CMVariant(0.5).getValueType(), ValueType::Double);
    EXPECT_EQ(CMVariant(CMVariantList{}).getValueType(), ValueType::List);
    EXPECT_EQ(CMVariant(CMVariantMap{}).getValueType(), ValueType::Map);
}

TEST(CMVariant, TakesANullPointerForAnEmptyString) {
    const CMVariant value(static_cast<const char*>(nullptr));
    EXPECT_EQ(value.getValueType(), ValueType::String);
    EXPECT_EQ(value.stringValue(), "");
}

TEST(CMVariant, KeepsAStringWithNulBytes) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(CMVariant(text).stringValue(), text);
}

TEST(CMVariant, ReadsStringsOfOtherTypesAsEmpty) {
    EXPECT_EQ(CMVariant().stringValue(), "");
    EXPECT_EQ(CMVariant(CMVariantList{CMVariant("a")}).stringValue(), "");
    EXPECT_EQ(CMVariant(CMVariantMap{{"a", CMVariant("b")}}).stringValue(), "");
}

TEST(CMVariant, SpellsADoubleInTheShortestForm) {
    EXPECT_EQ(CMVariant(0.2).stringValue(), "0.2");
    EXPECT_EQ(CMVariant(1.0).stringValue(), "1");
    EXPECT_EQ(CMVariant(-1.5).stringValue(), "-1.5");
    EXPECT_EQ(CMVariant(0.0).stringValue(), "0");
    EXPECT_EQ(CMVariant(-0.0).stringValue(), "-0");
    EXPECT_EQ(CMVariant(1e300).stringValue(), "1e+300");
    EXPECT_EQ(CMVariant(0.1 + 0.2).stringValue(), "0.30000000000000004");
    EXPECT_EQ(CMVariant(std::numeric_limits<double>::denorm_min()).stringValue(), "5e-324");
    EXPECT_EQ(CMVariant(std::numeric_limits<double>::max()).stringValue(), "1.7976931348623157e+308");
}

TEST(CMVariant, ReadsBackTheDoubleThatItSpelled) {
    for (const double number : {0.1, 1.0 / 3.0, 1e23, 9007199254740993.0, 2.2250738585072014e-308, 5e-324, -123.456}) {
        EXPECT_EQ(CMVariant(CMVariant(number).stringValue()).doubleValue(), number);
    }
}

TEST(CMVariant, ReadsADoubleAsItIs) {
    EXPECT_EQ(CMVariant(0.7).doubleValue(), 0.7);
    EXPECT_TRUE(std::isnan(CMVariant(std::nan("")).doubleValue()));
}

TEST(CMVariant, ReadsTheNumberThatAStringSpells) {
    EXPECT_EQ(CMVariant("0.7").doubleValue(), 0.7);
    EXPECT_EQ(CMVariant("-2").doubleValue(), -2.0);
    EXPECT_EQ(CMVariant("1e3").doubleValue(), 1000.0);
    EXPECT_EQ(CMVariant("1E-2").doubleValue(), 0.01);
    EXPECT_EQ(CMVariant(".5").doubleValue(), 0.5);
    EXPECT_EQ(CMVariant("5.").doubleValue(), 5.0);
    EXPECT_EQ(CMVariant("007").doubleValue(), 7.0);
    EXPECT_EQ(CMVariant("4.9406564584124654e-324").doubleValue(), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(CMVariant("1.7976931348623157e308").doubleValue(), std::numeric_limits<double>::max());
}

TEST(CMVariant, AllowsAPlusSignInFrontOfANumber) {
    EXPECT_EQ(CMVariant("+0.7").doubleValue(), 0.7);
    EXPECT_EQ(CMVariant("+.5").doubleValue(), 0.5);
    EXPECT_EQ(CMVariant(" +3 ").doubleValue(), 3.0);
    EXPECT_EQ(CMVariant("+").doubleValue(), 0.0);
    EXPECT_EQ(CMVariant("++3").doubleValue(), 0.0);
    EXPECT_EQ(CMVariant("+-3").doubleValue(), 0.0);
    EXPECT_EQ(CMVariant("-+3").doubleValue(), 0.0);
    EXPECT_EQ(CMVariant("+ 3").doubleValue(), 0.0);
}

TEST(CMVariant, AllowsBlanksAroundANumber) {
    EXPECT_EQ(CMVariant(" \t\r\n\v\f1.25 \t\r\n\v\f").doubleValue(), 1.25);
    EXPECT_EQ(CMVariant("1 .25").doubleValue(), 0.0);
}

TEST(CMVariant, ReadsAStringThatIsNoFiniteNumberAsZero) {
    for (const char* text :
         {"",         " ",  "abc", "1x", "1 2", "1,5", "0x10", "nan",   "NaN",   "inf",    "-inf",
          "infinity", "1e", "1e+", "e5", ".",   "-",   "--1",  "1.2.3", "1e400", "-1e400", "1'000"}) {
        EXPECT_EQ(CMVariant(text).doubleValue(), 0.0) << text;
    }
    EXPECT_EQ(CMVariant(std::string("1\0", 2)).doubleValue(), 0.0);
    EXPECT_EQ(CMVariant("1e-400").doubleValue(), 0.0);
}

TEST(CMVariant, ReadsDoublesOfOtherTypesAsZero) {
    EXPECT_EQ(CMVariant().doubleValue(), 0.0);
    EXPECT_EQ(CMVariant(CMVariantList{CMVariant(1.0)}).doubleValue(), 0.0);
    EXPECT_EQ(CMVariant(CMVariantMap{{"a", CMVariant(1.0)}}).doubleValue(), 0.0);
}

/// Sets a locale with a decimal comma, if the machine has one, while it lives.
class CommaLocale {
public:
    CommaLocale() : m_former(std::setlocale(LC_ALL, nullptr)) {
        for (const char* name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8", "fr_FR", "it_IT.UTF-8", "pl_PL.UTF-8"}) {
            if (std::setlocale(LC_ALL, name) != nullptr) {
                return;
            }
        }
    }
    ~CommaLocale() { std::setlocale(LC_ALL, m_former.c_str()); }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

private:
    std::string m_former;
};

TEST(CMVariant, ReadsAndSpellsNumbersInTheCLocaleInAnyLocale) {
    const CommaLocale locale;
    EXPECT_EQ(CMVariant("0.5").doubleValue(), 0.5);
    EXPECT_EQ(CMVariant("0,5").doubleValue(), 0.0);
    EXPECT_EQ(CMVariant(0.5).stringValue(), "0.5");
    EXPECT_EQ(CMVariant(1234567.5).stringValue(), "1234567.5");
}

TEST(CMVariant, GivesItsListAndMap) {
    const CMVariant list(CMVariantList{CMVariant("a"), CMVariant(2.0), CMVariant()});
    ASSERT_EQ(list.listValue().size(), 3U);
    EXPECT_EQ(list.listValue()[0].stringValue(), "a");
    EXPECT_EQ(list.listValue()[1].doubleValue(), 2.0);
    EXPECT_EQ(list.listValue()[2].getValueType(), ValueType::Null);

    const CMVariant map(CMVariantMap{{"b", CMVariant("2")}, {"a", list}});
    ASSERT_EQ(map.mapValue().size(), 2U);
    EXPECT_EQ(map.mapValue().begin()->first, "a");
    EXPECT_EQ(map.mapValue().at("a").listValue().size(), 3U);
    EXPECT_EQ(map.mapValue().at("b").stringValue(), "2");
}

TEST(CMVariant, GivesEmptyListsAndMapsForOtherTypes) {
    EXPECT_TRUE(CMVariant().listValue().empty());
    EXPECT_TRUE(CMVariant().mapValue().empty());
    EXPECT_TRUE(CMVariant("a").listValue().empty());
    EXPECT_TRUE(CMVariant("a").mapValue().empty());
    EXPECT_TRUE(CMVariant(1.0).listValue().empty());
    EXPECT_TRUE(CMVariant(CMVariantMap{{"a", CMVariant()}}).listValue().empty());
    EXPECT_TRUE(CMVariant(CMVariantList{CMVariant()}).mapValue().empty());
}

TEST(CMVariant, CopiesAreIndependent) {
    CMVariant original(CMVariantMap{{"a", CMVariant("1")}});
    const CMVariant copy(original);
    original = CMVariant("changed");
    EXPECT_EQ(original.stringValue(), "changed");
    EXPECT_EQ(copy.mapValue().at("a").stringValue(), "1");
}

TEST(CMVariant, ChangesItsTypeWhenAssigned) {
    CMVariant value("text");
    value = CMVariant(2.0);
    EXPECT_EQ(value.getValueType(), ValueType::Double);
    value = CMVariant(CMVariantList{CMVariant("a")});
    EXPECT_EQ(value.getValueType(), ValueType::List);
    value = CMVariant();
    EXPECT_EQ(value.getValueType(), ValueType::Null);
}

TEST(CMVariant, CanBeAssignedAnItemOfItself) {
    CMVariant numbers(CMVariantList{CMVariant(1.0), CMVariant(2.5)});
    numbers = numbers.listValue()[1];
    EXPECT_EQ(numbers.doubleValue(), 2.5);

    CMVariant nested(CMVariantList{CMVariant(CMVariantList{CMVariant("inner")})});
    nested = nested.listValue()[0];
    ASSERT_EQ(nested.listValue().size(), 1U);
    EXPECT_EQ(nested.listValue()[0].stringValue(), "inner");

    CMVariant map(CMVariantMap{{"a", CMVariant(CMVariantMap{{"b", CMVariant("deep")}})}});
    map = map.mapValue().at("a");
    EXPECT_EQ(map.mapValue().at("b").stringValue(), "deep");
}

TEST(CMVariant, CanBeAssignedToItself) {
    CMVariant value("text");
    const CMVariant& same = value;
    value = same;
    EXPECT_EQ(value.stringValue(), "text");
}

TEST(CMVariant, MovesItsContent) {
    CMVariant source(CMVariantList{CMVariant("a")});
    const CMVariant* item = source.listValue().data();
    const CMVariant target(std::move(source));
    EXPECT_EQ(target.listValue().data(), item);
    CMVariant assigned;
    assigned = CMVariant(CMVariantMap{{"k", CMVariant("v")}});
    EXPECT_EQ(assigned.mapValue().at("k").stringValue(), "v");
}

}  // namespace
