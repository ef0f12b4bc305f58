// Every name that hosts compile against, by its own header, with its type: if one is gone, has
// changed, or is not exported, this does not compile or link.

#include "exc/exc.h"
#include "guid/guid.h"
#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"
#include "posix/CUserInfo.h"
#include "system/CRecoveryIsoDetector.h"
#include "util/str.h"
#include "zfstools/Executor.h"
#include "zfstools/Property.h"
#include "zfstools/TextTable.h"
#include "zfstools/Tools.h"
#include "zfstools/Util.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZfsProperties.h"
#include "zfstools/Zpool.h"
#include "zfstools/ZpoolsEnumerator.h"
#include "zfstools/logging.h"

#include "executors/BatchingExecutor.h"
#include "executors/Recording.h"
#include "executors/RecordingExecutor.h"
#include "executors/ReplayingExecutor.h"

#include <cstdio>

using namespace zfslib;
using std::string;
using Strings = std::vector<string>;
using Rows = std::vector<Strings>;
using Executor = CommandExecutor;

namespace {

int failures = 0;

void Expect(bool ok, const char* what) {
    if (!ok)
        std::printf("not so: %s\n", what);
    failures += ok ? 0 : 1;
}

/// Takes the address of a function of exactly this type, so that the linker has to find it.
template <typename Function>
void Has(Function function) {
    Expect(function != nullptr, "a function has an address");
}

template <typename Expected, typename T>
void Is(const T&) {
    static_assert(std::is_same_v<Expected, T>);
}

void UsePlatform() {
    Has<string (*)(const string&)>(posix::CSimpleCmdExec::RunCommand);
    Has<int (*)(const string&, const Strings&, string&, string&, bool, int)>(
        posix::CSimpleCmdExec::RunCommandAndGetOutput);
    Has<string (*)(const string&, int)>(posix::CSimpleCmdExec::RunShellCommand);
    Has<void (*)(bool)>(posix::CSimpleCmdExec::SetStopped);
    Is<uid_t>(posix::CUserInfo("root").GetUID());
    Has<gid_t (posix::CGroupInfo::*)() const>(&posix::CGroupInfo::GetGID);
    using orvcommonlib::system::CRecoveryIsoDetector;
    CRecoveryIsoDetector::SetDetector(std::function<bool()>());
    Expect(!CRecoveryIsoDetector::IsUnderRecoveryIso(), "no recovery image");
    const guid::guid_t guid = guid::guid_t::CreateNew();
    Expect(guid == guid && guid != guid::guid_t() && !(guid < guid), "identifiers compare");
    Is<string>(guid.ToString());
    Expect(util::str_format("%1 %10 %2", 'a', string("b")) == "a %10 b", "formatting");
    Expect(util::split(" a b ") == Strings{"a", "b"}, "words");
    Expect(util::str_is_integer("12") && util::str<int>(-3) == "-3", "integers");
    Expect(util::str_is_starts_with("ab", "a") && util::str_is_finishes_with("ab", "b") &&
               util::str_caseicmp("aB", "Ab"),
           "comparisons");
    const logging::Sink sink = [](logging::Level, const string&, const string&) {};
    logging::SetSink(sink);
    logging::SetSink(sink, logging::Level::warning);
    const logging::log_section_t section("consumer");
    section.dbg("%1", 1);
    section.info("%1", 1);
    section.warn("%1", 1);
    section.err("%1", 1);
    section.err(std::runtime_error("x"), "%1", 1);
    logging::trace_t(section, "%1", 1).okNoMsg();
    zfslib_log.dbg("%1", _log.Name());
    logging::SetSink({});
}

/// An exception is caught by its type on the other side of the library's border.
void UseErrors() {
    try {
        posix::CSimpleCmdExec::RunCommand("exit 3");
    } catch (const posix::CCommandFailure& failure) {
        Expect(failure.GetCode() == 3, "the status of a failed command");
    }
    try {
        ZfsDatasetEnumerator::generateQuotaName("1001x/", "userquota");
    } catch (const exc::CRuntimeExc& error) {
        Expect(dynamic_cast<const std::nested_exception*>(&error) != nullptr, "a cause");
    }
    try {
        try {
            throw exc::CRuntimeExc("%1", "cause");
        } catch (const std::exception&) {
            exc::RegenExc("%1", "effect");
        }
    } catch (const exc::CRuntimeExc& error) {
        Expect(logging::Describe(error) == "effect: cause", "a described cause");
    }
}

template <typename T>
void UseProperty(Property<T> property, const string& text) {
    Property<T> copy(property);
    Is<T>(copy.Set(text).GetValue());
    copy.SetSource("local", "");
    Expect(copy.GetText() == text && copy.GetState() == PropState::Initialized &&
               copy.GetSource().type == PropSource::Type::Local,
           copy.GetName().c_str());
    property = copy;
    property = std::move(copy);
    Property<T>(std::move(property)).SetSilent(AuxPropValues());
    Is<T>(property.GetDefault());
    Has<void (Property<T>::*)(const T&)>(&Property<T>::Init);
}

void UseProperties() {
    ZfsProperties properties;
    UseProperty(properties.casesensitivity, "mixed");
    UseProperty(properties.encryption, "on");
    UseProperty(properties.keysource, "none");
    UseProperty(properties.aclmode, "mask");
    UseProperty(properties.canmount, "noauto");
    UseProperty(properties.volsize, "auto");
    UseProperty(properties.zoned, "on");
    UseProperty(properties.mountpoint, "/x");
    UseProperty(Zpool::Properties().version, "5");
    UseProperty(Zpool::Properties().failmode, "panic");
    UseProperty(Zpool::Properties().dedupratio, "1.500000");
    const auto fromString = [](const string& text) { return text.at(0); };
    UseProperty(Property<char>("own", 'a', fromString, [](char c) { return string(1, c); }), "b");
    Is<std::vector<Property<string>>>(properties.userQuotas);
    Is<std::vector<Property<string>>>(properties.groupQuotas);
    Is<std::vector<Property<string>>>(properties.userProperties);
    Expect(Property<string>::DefaultFromString("-").empty(), "text");
    Expect(Property<bool>::DefaultToString(true) == "on", "bool");
    Expect(Property<unsigned long>::DefaultFromString("7") == 7, "number");

    const auto [value, source, inheritedFrom] = AuxPropValue{"v", "s", "i"};
    const auto [unparsed, type, text, parent] = PropSource();
    Is<std::uint32_t>(unparsed);
    Has<PropSource::Type (*)(const string&)>(PropSource::StringToType);
    Has<string (*)(const PropSource::Type&)>(PropSource::TypeToString);
    Expect(value + source + inheritedFrom + text + parent == "vsi" &&
               type == PropSource::Type::None,
           "the order of members");

    using SpaceSize = ZfsProperties::SpaceSize;
    const auto [bytes, unit, kind] = SpaceSize::FromString("1.5K");
    Expect(bytes == 1536 && kind == SpaceSize::Kind::Value && !SpaceSize::units.empty(), "a size");
    Is<string>(unit.Name());
    Is<Strings>(SpaceSize::Unit("B", {"B"}, 1).AltName());
    Is<unsigned long>(unit.ByteFactor());
    Has<string (*)(const SpaceSize&)>(SpaceSize::ToString);
    Is<double>(SpaceSize().GetKb() + SpaceSize().GetMb() + SpaceSize().GetTb());
}

void UseRecords() {
    const Zpool empty;
    const auto& [name, size, allocated, properties, state, devices, spares, logs, caches, metas] =
        empty;
    Expect(name.empty() && size + allocated == 0 && state == Zpool::State::Unavail, "a pool");
    Is<Zpool::Properties>(properties);
    Is<std::vector<Zpool::VirtualDevice>>(devices);
    const Zpool::VirtualDevice device{"m", Zpool::VirtualDeviceType::Mirror, {{{}, "d"}}};
    Is<guid::guid_t>(device.devices.at(0).guid);
    const ZpoolEnumerator::Config config{state, devices, logs, caches, metas, spares};
    Expect(config.spares.empty(), "a configuration");
    using Pool = const string&;
    Has<void (*)(Pool, const Property<bool>&)>(Zpool::Properties::SetAutoexpand);
    Has<void (*)(Pool, const Property<bool>&)>(Zpool::Properties::SetAutoreplace);
    Has<void (*)(Pool, const Property<Zpool::Properties::Failmode>&)>(
        Zpool::Properties::SetFailmode);
    Has<void (*)(Pool, const Property<string>&)>(Zpool::Properties::SetBootfs);
    Has<void (*)(Pool, const Property<string>&)>(Zpool::Properties::SetCachefile);
    Has<void (*)(Pool, const Property<string>&)>(Zpool::Properties::SetScrubInterval);

    const ZfsDataset dataset;
    Is<ZfsDataset::Type>(dataset.type);
    Is<std::uint64_t>(dataset.avail + dataset.used + dataset.usedrefreserv);
    ZfsDatasetEnumerator::Node node = ZfsDatasetEnumerator::GrowTree({dataset});
    node.children["a"] = std::make_shared<ZfsDatasetEnumerator::Node>();
    Is<ZfsProperties>(node.dataset.properties);
}

void UseOperations() {
    for (const auto get : {Executors::GetDfExecutor, Executors::GetZpoolExecutor})
        Is<Executor>(get());
    Executors::SetDfExecutor(Executors::TimedShellExecutor(1));
    Executors::SetZpoolExecutor(Executors::TimedShellExecutor(1));
    Executors::SetProcessExecutor(Executors::TimedChildProcessExecutor(1));
    Has<string (*)(const string&)>(Executors::ChildProcessExecute);
    Has<Rows (TextTable::*)(unsigned) const>(&TextTable::GetRows);
    Has<Rows (TextTable::*)(unsigned, unsigned) const>(&TextTable::GetRows);
    Has<Rows (TextTable::*)(const string&) const>(&TextTable::ExtractRows);
    Expect(TextTable("a b").RowFromLine("c d").size() == 2, "a row");
    Has<bool (*)(const string&)>(IsIntegerValue);
    Has<bool (*)(const string&, const Strings&)>(IsZfsVolume);
    Has<unsigned long (*)(const string&)>(ParseSpaceValue);
    Has<std::vector<Zpool> (*)(Executor)>(ZpoolEnumerator::Enumerate);
    Has<std::pair<std::vector<ZfsDataset>, Strings> (ZfsDatasetEnumerator::*)(
        const string&, Executor)>(&ZfsDatasetEnumerator::Enumerate);
    Has<bool (*)()>(IsZfsToolsInstalled);
    Has<bool (*)(const string&)>(IsZfsDataset);
    Has<Zpool (*)(const string&)>(GetAssociatedZpool);
    Has<std::vector<Pool4Import> (*)(Executor)>(EnumerateZpool4Import);
    Has<void (*)(const Pool4Import&, const string&, const string&, Executor)>(ImportZfsPool);

    const executors::Replayer replayer({{"a", "b", std::nullopt}}, "text");
    Expect(executors::BatchingExecutor(replayer.Executor())("a") == "b", "an answer");
    Has<Executor (*)(Executor, const string&)>(executors::RecordingExecutor);
    Has<std::vector<executors::Exchange> (*)(const string&)>(executors::ReadRecording);
}

} // namespace

int main() {
    UsePlatform();
    UseErrors();
    UseProperties();
    UseRecords();
    UseOperations();
    return failures == 0 ? 0 : 1;
}
