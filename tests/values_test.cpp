// The platform's text functions, the text table, typed properties and sizes.

#include "exc/exc.h"
#include "fakes.h"
#include "guid/guid.h"
#include "posix/CUserInfo.h"
#include "util/ShellWord.h"
#include "util/str.h"
#include "zfstools/Property.h"
#include "zfstools/TextTable.h"
#include "zfstools/Util.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/Zpool.h"

#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <limits>
#include <optional>
#include <set>

using namespace zfslib;
using testing::ElementsAre;
using Rows = std::vector<std::vector<std::string>>;

TEST(Text, FormatReplacesEachPlaceholderOnceAndIgnoresTheRest) {
    EXPECT_EQ(util::str_format("%2-%1|%1", "%2", 7), "7-%2|%2");
    EXPECT_EQ(util::str_format("%1%3%0%", "a"), "a%3%0%");
    EXPECT_EQ(util::str_format("%10 %1", 1, 2, 3, 4, 5, 6, 7, 8, 9, "ten"), "ten 1");
    EXPECT_EQ(util::str_format("%99999999999999999999999 %1", std::string("a\0b", 3)),
              std::string("%99999999999999999999999 a\0b", 28));
}

TEST(Text, WordsAndTests) {
    EXPECT_THAT(util::split(" \t a\v\fb\r\nc\xa0 "), ElementsAre("a", "b", "c\xa0"));
    EXPECT_TRUE(util::str_is_integer("007"));
    EXPECT_EQ(util::ShellLine({"a:/b", "a'$b", "", "c d"}), "a:/b 'a'\\''$b' '' 'c d'");
    for (const char* text : {"", "-1", "+1", " 1", "1 ", "1.0", "0x1"})
        EXPECT_FALSE(util::str_is_integer(text)) << text;
    EXPECT_TRUE(util::str_caseicmp("POSIX", "posix"));
    EXPECT_FALSE(util::str_caseicmp("POSIX", "posi"));
    EXPECT_FALSE(util::str_caseicmp("[", "{"));
    EXPECT_FALSE(util::str_is_finishes_with("b", "kb"));
    EXPECT_EQ(util::str<int>(-12), "-12");
}

TEST(Text, NumbersAreReadAsByAStreamAndTruncatedWithoutSurprises) {
    struct Row {
        std::string text;
        std::optional<double> number;
        std::string rest;
    };
    const std::string tooSmall = "0." + std::string(1000, '0') + "1";
    const std::string tooLarge = "1" + std::string(1000, '0') + "e-1";
    const Row rows[] = {
        {"  1.5K", 1.5, "K"},     {"1.2.3", 1.2, ".3"},
        {"-0x1", 0.0, "x1"},      {"10E", {}, "10E"},
        {"1e", {}, "1e"},         {"", {}, ""},
        {"1e999", {}, "1e999"},   {".5", .5, ""},
        {"+7 ", 7, " "},          {"1-2", 1, "-2"},
        {"-", {}, "-"},           {"nan", {}, "nan"},
        {"5.E1.", 50, "."},       {".e1", {}, ".e1"},
        {"1e-9999999999", 0, ""}, {"1e3", 1000, ""},
        {"1,5", 1, ",5"},         {"inf", {}, "inf"},
        {tooSmall + "K", 0, "K"}, {tooSmall + "e", {}, tooSmall + "e"},
        {tooLarge, {}, tooLarge},
    };
    for (const Row& row : rows) {
        std::string_view rest = row.text;
        EXPECT_EQ(util::ConsumeDouble(rest), row.number) << row.text;
        EXPECT_EQ(rest, row.rest) << row.text;
    }
    EXPECT_EQ(util::TruncateToUint64(-1), 0U);
    EXPECT_EQ(util::TruncateToUint64(std::nan("")), 0U);
    EXPECT_EQ(util::TruncateToUint64(0x1p63), std::uint64_t{1} << 63);
    EXPECT_EQ(util::TruncateToUint64(0x1p64), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(util::DoubleToString(0x1p64), "18446744073709551616.000000");
}

TEST(Platform, GuidsUsersAndErrors) {
    std::set<guid::guid_t> guids;
    for (int i = 0; i < 1000; ++i)
        guids.insert(guid::guid_t::CreateNew());
    EXPECT_EQ(guids.size(), 1000U);
    EXPECT_THAT(guids.begin()->ToString(),
                testing::MatchesRegex("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}"));

    EXPECT_EQ(posix::CUserInfo("root").GetUID(), 0U);
    EXPECT_EQ(ErrorOf([] { posix::CUserInfo("no:such"); }), "Unknown user: [no:such].");
    EXPECT_EQ(ErrorOf([] { posix::CGroupInfo(std::string("root\0x", 6)); }),
              std::string("Unknown group: [root\0x].").c_str());

    LogCapture log;
    try {
        try {
            throw std::runtime_error("cause %1");
        } catch (const std::exception&) {
            exc::RegenExc("outer [%1]", 5);
        }
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_STREQ(error.what(), "outer [5]");
        logging::log_section_t("s").err(error, "failed: %1", "x");
    }
    EXPECT_THAT(log.lines, ElementsAre("error: failed: x: outer [5]: cause %1"));
    try {
        std::throw_with_nested(std::runtime_error("no cause"));
    } catch (const std::exception& error) {
        EXPECT_EQ(logging::Describe(error), "no cause");
    }
    try {
        try {
            throw 7;
        } catch (...) {
            exc::RegenExc("outer");
        }
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(logging::Describe(error), "outer: unknown error");
    }
}

TEST(Log, FormatsNothingBelowTheThresholdAndSurvivesItsSink) {
    const logging::log_section_t section("s");
    LogCapture log(logging::Level::warning);
    section.info("quiet");
    section.warn("%1", "100%1");
    EXPECT_THAT(log.lines, ElementsAre("warning: 100%1"));
    logging::SetSink([](auto, const auto&, const auto&) { throw std::runtime_error("full"); });
    EXPECT_NO_THROW(section.err("lost"));
    struct NoMemory {
        operator std::string_view() const { throw std::bad_alloc(); }
    };
    EXPECT_NO_THROW(section.err("%1", NoMemory()));
    logging::SetSink({});
    EXPECT_FALSE(logging::IsEnabled(logging::Level::error));
}

TEST(TextTable, OneRowForEachLineOneCellForEachWord) {
    const TextTable table("NAME  SIZE\n\n\tx   y  \r\nlast");
    EXPECT_EQ(table.GetRows(0), (Rows{{"NAME", "SIZE"}, {}, {"x", "y"}, {"last"}}));
    EXPECT_EQ(table.GetRows(2), (Rows{{"x", "y"}, {"last"}}));
    EXPECT_EQ(table.GetRows(1, 1), Rows{});
    EXPECT_EQ(ErrorOf([&] { return table.GetRows(2, 1); }),
              "cannot create std::vector larger than max_size()");
    EXPECT_THROW(static_cast<void>(table.GetRows(5)), std::length_error);
    EXPECT_EQ(TextTable("").GetRows(5), Rows{});
    EXPECT_EQ(TextTable("a\n\n").GetRows(0).size(), 2U);
}

TEST(Property, StoresAValueOnce) {
    Property<bool> property("atime", false);
    EXPECT_EQ(property.GetText(), "off");
    property.Set("on").SetSource("local", "");
    EXPECT_EQ(ErrorOf([&] { property.Set("off"); }), "Error, property reset prohibited: [atime]");
    EXPECT_TRUE(property.GetValue());
    EXPECT_EQ(property.GetText(), "off") << "the raw text stays where the store was refused";
}

TEST(Property, AFailedConversionIsLoggedAndKeepsTheValue) {
    LogCapture log;
    Property<unsigned long> number("version", 32);
    number.Set("12abc");
    number.Set("abc");
    EXPECT_EQ(number.GetState(), PropState::Failed);
    EXPECT_EQ(number.GetValue(), 12U);
    EXPECT_EQ(number.GetText(), "abc");
    Property<double> empty("ratio", 1.0, nullptr, [](const double&) { return "1"; });
    empty.Set("2");
    EXPECT_THAT(log.lines, ElementsAre("warning: stoul", "warning: bad_function_call"));
    EXPECT_THROW(number.Set("13"), std::runtime_error) << "a failed property cannot be stored";
    EXPECT_THROW(Property<double>("ratio", 1.0, nullptr, nullptr), std::bad_function_call);
}

TEST(Property, DefaultConversions) {
    EXPECT_EQ(Property<std::string>("a", "x").Set("-").GetText(), "");
    for (const char* text : {"off", "-", "ON", "yes", ""})
        EXPECT_FALSE(Property<bool>::DefaultFromString(text)) << text;
    const auto number = [](const char* text) {
        return Property<unsigned long>::DefaultFromString(text);
    };
    EXPECT_EQ(number(" \t18446744073709551615x"), std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(number("-1"), std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(number("+7"), 7U);
    EXPECT_THROW(number("18446744073709551616"), std::out_of_range);
    for (const char* text : {"", "-", "+-1", "x1"})
        EXPECT_THROW(number(text), std::invalid_argument) << text;
}

TEST(Property, SourcesAreKeptAsTheyCame) {
    LogCapture log;
    Property<std::string> property("quota", "none");
    property.SetSilent({{"refquota", {"1G", "local", ""}}});
    EXPECT_EQ(property.GetState(), PropState::Unset);
    EXPECT_EQ(property.GetSource().type, PropSource::Type::None);
    EXPECT_EQ(property.GetSource().text, "");
    property.SetSilent({{"quota", {"1G", "inherited", "tank/a"}}});
    EXPECT_EQ(property.GetSource().type, PropSource::Type::Inherited);
    EXPECT_EQ(property.GetSource().inheritedFrom, "tank/a");
    EXPECT_THROW(property.SetSilent({{"quota", {"2G", "local", ""}}}), std::runtime_error);
    EXPECT_EQ(property.GetSource().text, "inherited") << "the value comes first";
    property.SetSource("nowhere", "x");
    EXPECT_EQ(property.GetSource().type, PropSource::Type::Inherited) << "the type stays";
    property.SetSource("received", "");
    EXPECT_EQ(property.GetSource().type, PropSource::Type::Received);
    EXPECT_EQ(property.GetSource().unparsed, 1U) << "never reset";
    EXPECT_EQ(property.GetSource().inheritedFrom, "");
    EXPECT_THAT(log.lines,
                ElementsAre("info: Failed to convert source value from string: [nowhere], expected "
                            "values are: [-, inherited, default, temporary, local]"));
}

TEST(Property, RowsOfOneDatasetShareTheirSources) {
    LogCapture log;
    detail::Sources sources;
    const auto source = [&sources](const char* text, const char* parent) {
        Property<std::string> property("quota", "none");
        property.SetRow("1G", text, parent, sources);
        return property;
    };
    const auto first = source("inherited", "tank");
    EXPECT_EQ(&first.GetSource(), &source("inherited", "tank").GetSource());
    EXPECT_EQ(source("inherited", "tank/a").GetSource().inheritedFrom, "tank/a");
    EXPECT_EQ(first.GetSource().inheritedFrom, "tank") << "a neighbour's source changes nothing";
    EXPECT_EQ(source("odd", "tank/a").GetSource().unparsed, 1U);
    EXPECT_EQ(source("odd", "tank/a").GetSource().unparsed, 1U);
    EXPECT_EQ(log.lines.size(), 2U) << "each of them is logged";
}

TEST(Property, AnAssignedPropertyKeepsItsOwnDefault) {
    Property<std::string> target("a", "mine");
    Property<std::string> source("b", "other");
    source.Set("value").SetSource("local", "");
    target = source;
    EXPECT_EQ(target.GetName() + target.GetText() + target.GetSource().text, "bvaluelocal");
    EXPECT_EQ(target.GetDefault(), "mine");
    Property<std::string> moved = std::move(source);
    EXPECT_EQ(moved.GetDefault(), "other");
    target = std::move(moved);
    EXPECT_EQ(target.GetValue() + target.GetDefault(), "valuemine");
    EXPECT_EQ(moved.GetName(), "b"); // NOLINT(bugprone-use-after-move)
    std::swap(target, moved);
    EXPECT_EQ(target.GetDefault() + moved.GetDefault(), "mineother");
}

/// Tries the words of an enumeration's values in their order, a text that is none of them, and the
/// value behind the last: with the same error, if no other is given.
template <typename Read, typename Print>
void TryTexts(Read read, Print print, const char* words, const std::string& wrong,
              const std::string& error, const char* printError = nullptr) {
    using Value = decltype(read(wrong));
    int next = 0;
    for (const std::string& text : util::split(words)) {
        EXPECT_EQ(static_cast<int>(read(text)), next) << text;
        EXPECT_EQ(print(static_cast<Value>(next++)), text);
    }
    EXPECT_EQ(ErrorOf([&] { read(wrong); }), error + wrong);
    EXPECT_EQ(ErrorOf([&] { print(static_cast<Value>(next)); }),
              printError != nullptr ? printError : error + util::str(next));
}

TEST(Enumerations, HaveTheTextsOfTheTools) {
    using P = ZfsProperties;
    using Pool = Zpool::Properties;
    TryTexts(P::StringToAclMode, P::AclmodeToString, "discard mask passthrough groupmask", "x",
             "Incorrect zfs aclmode value: ");
    TryTexts(P::StringToCanmount, P::CanmountToString, "on off noauto", "lz4",
             "Inforrect zfs canmount value: ");
    TryTexts(P::StringToCasesensitivity, P::CasesensitivityToString, "sensitive insensitive mixed",
             "Mixed", "Incorrect zfs casesensitivity value: ");
    TryTexts(P::StringToEncryption, P::EncryptionToString,
             "off on aes-128-ccm aes-192-ccm aes-256-ccm aes-128-gcm aes-192-gcm", "aes-256-gcm",
             "Unknown ZFS encryption value: ", "");
    TryTexts(P::StringToKeysource, P::KeysourceToString,
             "- none raw hex passphrase,promt file raw,ephemeral", "passphrase,prompt",
             "An unknown ZFS keysource value: ");
    TryTexts(ZfsDataset::StringToType, ZfsDataset::TypeToString, "filesystem volume snapshot",
             "bookmark", "Incorrect zfs dataset type conversion: ");
    TryTexts(Zpool::StringToState, Zpool::StateToString, "DEGRADED OFFLINE ONLINE REMOVED UNAVAIL",
             "FAULTED", "Incorrect zpool state value: ");
    TryTexts(Zpool::StringToVirtualDeviceType, Zpool::VirtualDeviceTypeToString,
             "file disk mirror raidz raidz1 raidz2 raidz3", "draid",
             "Unknown virtual device type conversion:");
    TryTexts(Pool::StringToFailmode, Pool::FailmodeToString, "wait continue panic", "Wait",
             "Incorrect zpool failmode value: ");
    EXPECT_EQ(ErrorOf([] { PropSource::TypeToString(static_cast<PropSource::Type>(6)); }),
              "Cannot convert source value to string: 6");
    EXPECT_EQ(static_cast<int>(P::StringToEncryption("aes-128-ctr")), 8);
    EXPECT_EQ(P::EncryptionToString(P::Encryption::Aes256Gcm), "aes-256-gcm");
    EXPECT_EQ(ErrorOf([] { P::EncryptionToString(static_cast<P::Encryption>(9)); }),
              "An unknown ZFS encryption value: 9");
    EXPECT_TRUE(P::StringToMounted("yes") && !P::StringToMounted("on"));
}

TEST(SpaceSize, ReadsAndPrints) {
    using SpaceSize = ZfsProperties::SpaceSize;
    struct Row {
        const char* text;
        std::uint64_t bytes;
        const char* printed;
    };
    const Row rows[] = {
        {"auto", 0, "auto"},
        {"none", 0, "none"},
        {"", 0, "none"},
        {"-", 0, "none"},
        {"1.5K", 1536, "1.500000K"},
        {"1b", 1, "1.000000B"},
        {"1byte", 1, "1.000000B"},
        {"10kb", 10240, "10.000000K"},
        {"2Kb", 2048, "2.000000K"},
        {"0.5M", 524288, "0.500000M"},
        {"5P", 0, "none"},
        {"K", 0, "none"},
        {"1.5 K", 0, "none"},
        {" 2T", 2199023255552, "2.000000T"},
        {"20.5G", 22011707392, "20.500000G"},
        {"-1K", 0, "0.000000K"},
        {"2147483647", 2147483647, "2147483647.000000B"},
        {"1e3K", 1024000, "1000.000000K"},
        {"99999999T", 18446744073709551615U, "16777216.000000T"},
    };
    for (const Row& row : rows) {
        const SpaceSize size = SpaceSize::FromString(row.text);
        EXPECT_EQ(size.bytes, row.bytes) << row.text;
        EXPECT_EQ(SpaceSize::ToString(size), row.printed) << row.text;
    }
    EXPECT_EQ(ErrorOf([] { SpaceSize::FromString("2147483648"); }), "stoi");
    EXPECT_TRUE(SpaceSize::FromString("auto") == SpaceSize::FromString("none"));
    EXPECT_TRUE(SpaceSize::FromString("1K") < SpaceSize::FromString("1025"));
    EXPECT_EQ(SpaceSize::FromString("512K").GetMb(), 0.5);
    EXPECT_EQ(ErrorOf([] { SpaceSize::Unit("X", {}, 0); }), "Units cannot have zero byte factor.");
}

TEST(SpaceValue, ReadsOrRefuses) {
    const std::pair<const char*, std::uint64_t> good[] = {
        {"-", 0},
        {"3000000000", 3000000000},
        {"1.5K", 1536},
        {"12Kx", 12288},
        {"20.5G", 22011707392},
        {"2T", 2199023255552},
        {"-1K", 0},
        {"512Bx", 512},
        {"34.4M", 36071014},
    };
    for (const auto& [text, bytes] : good)
        EXPECT_EQ(ParseSpaceValue(text), bytes) << text;
    for (const char* text :
         {"", "none", "auto", "1.5", "1.5B", "10kb", "10k", "5P", "5E", "K", "1 K"})
        EXPECT_EQ(ErrorOf([&] { ParseSpaceValue(text); }),
                  std::string("Failed to parse space value: [") + text + "].")
            << text;
    EXPECT_TRUE(IsIntegerValue("") && IsIntegerValue("12K") && !IsIntegerValue("1.5"));
    EXPECT_TRUE(IsZfsVolume("/dev/dsk/c0t0d0s0", {"/dev/x", "/dev/zvol/dsk/p/v"}));
    EXPECT_TRUE(IsZfsVolume("/dev/zvolume", {}));
    EXPECT_FALSE(IsZfsVolume("/dev/dsk/x", {"/devices", ""}));
}
