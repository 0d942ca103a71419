// SPDX-License-Identifier: Apache-2.0
// The CMPI headers against the table of interface facts: every row, so that what is built here and a broker agree byte
// by byte. Header sets of brokers are known to differ in some rows: CMPI_DIFFERENCES lists them. CMPI_SUITE tells which
// set it is.

#include "cmpi_abi/table.h"

#include <cmpift.h>

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// Converts to any type, so that counting initialisers counts members.
struct Anything {
    template <class Member> operator Member() const;
};

template <class, class Struct, size_t... Positions> struct TakesInitialisers : std::false_type {
};

template <class Struct, size_t... Positions>
struct TakesInitialisers<std::void_t<decltype(Struct{(static_cast<void>(Positions), Anything{})...})>, Struct,
                         Positions...> : std::true_type {
};

template <class Struct, size_t... Positions> constexpr bool takes(std::index_sequence<Positions...>)
{
    return TakesInitialisers<void, Struct, Positions...>::value;
}

// A union takes one initialiser however many members it has; they are counted in the header's text.
size_t unionMembers(const std::string &name)
{
    std::ifstream header(CMPI_HEADERS "/cmpidt.h");
    std::string text(std::istreambuf_iterator<char>(header), {});
    for (size_t at = text.find("/*"); at != std::string::npos; at = text.find("/*")) {
        text.erase(at, text.find("*/", at) + 2 - at);
    }
    for (size_t at = text.find("union _" + name); at != std::string::npos; at = text.find("union _" + name, at + 1)) {
        const size_t brace = text.find_first_not_of(" \n", at + sizeof "union _" - 1 + name.size());
        if (brace != std::string::npos && text[brace] == '{') {
            const std::string body = text.substr(brace, text.find('}', brace) - brace);
            return static_cast<size_t>(std::count(body.begin(), body.end(), ';'));
        }
    }
    return 0;
}

template <class Type, size_t Count> bool hasMembers(const char *name)
{
    if constexpr (std::is_union_v<Type>) {
        return unionMembers(name) == Count;
    } else {
        return takes<Type>(std::make_index_sequence<Count>()) && !takes<Type>(std::make_index_sequence<Count + 1>());
    }
}

#ifdef CMPI_HEADERS_ARE_CONST
// Version 2.1 has const in many places where 2.0 has none. It matters to no call.
template <class Type> struct Mutable {
    using type = Type;
};
template <class Type> struct Mutable<const Type> : Mutable<Type> {
};
template <class Type> struct Mutable<Type *> {
    using type = typename Mutable<Type>::type *;
};
template <class Type> struct Mutable<Type *const> : Mutable<Type *> {
};
template <class Result, class... Parameters> struct Mutable<Result(Parameters...)> {
    using type = typename Mutable<Result>::type(typename Mutable<Parameters>::type...);
};
template <class Type, class Expected> constexpr bool isType()
{
    return std::is_same_v<typename Mutable<Type>::type, typename Mutable<Expected>::type>;
}
#else
template <class Type, class Expected> constexpr bool isType()
{
    return std::is_same_v<Type, Expected>;
}
#endif

struct Check {
    std::string_view row;
    bool holds;
};

const Check kChecks[] = {
#include "cmpi_abi_checks.inc"
};

std::set<std::string> rowsThatDoNotHold()
{
    std::set<std::string> rows;
    for (const Check &check : kChecks) {
        if (!check.holds) {
            rows.emplace(check.row);
        }
    }
    return rows;
}

// The rows in which these headers differ from the table; none for the project's own.
std::set<std::string> rowsThatDiffer()
{
    std::ifstream list(CMPI_DIFFERENCES);
    std::set<std::string> rows;
    for (std::string row; std::getline(list, row);) {
        rows.insert(row);
    }
    return rows;
}

} // namespace

TEST(CMPI_SUITE, EveryRowOfTheTableIsChecked)
{
    const std::vector<cmpi::Row> rows = cmpi::readTable(TAV_SOURCE_DIR "/tests/data/cmpi-abi.csv");
    EXPECT_EQ(rows.size(), 1467u);
    ASSERT_EQ(rows.size(), std::size(kChecks));
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].line, kChecks[i].row);
    }
}

TEST(CMPI_SUITE, EveryRowOfTheTableHolds)
{
#ifdef CMPI_HEADERS_OF_A_BROKER // header sets differ in types that touch neither layout nor calls
    const std::set<std::string> known = rowsThatDiffer();
    for (const std::string &row : rowsThatDoNotHold()) {
        EXPECT_EQ(known.count(row), 1u) << row;
    }
#else
    EXPECT_EQ(rowsThatDoNotHold(), rowsThatDiffer());
#endif
}

TEST(CMPI_SUITE, StructuresStayPlainSoThatTheyArePassedAsInC)
{
    EXPECT_TRUE(std::is_trivial_v<CMPIStatus> && std::is_standard_layout_v<CMPIStatus>);
    EXPECT_TRUE(std::is_trivial_v<CMPIData> && std::is_standard_layout_v<CMPIData>);
    EXPECT_TRUE(std::is_trivial_v<CMPIValue> && std::is_standard_layout_v<CMPIValue>);
}

// The count must detect one member more and one member less.
TEST(CMPI_SUITE, TheCountOfMembersIsExact)
{
    EXPECT_TRUE((hasMembers<CMPIStatus, 2>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIStatus, 1>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIStatus, 3>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIValue, 27>("CMPIValue")));
    EXPECT_FALSE((hasMembers<CMPIValue, 29>("CMPIValue")));
}
