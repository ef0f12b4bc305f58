// What only a program outside of the library's own build can show: each public header is installed
// and includes alone, records have their members in order, and errors are caught by their type on
// the other side of the library's border. That every name is exported the list of symbols says.

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

namespace {

/// How the library fails: the thrower's type, its cause, and their text.
bool ErrorsAreCaught() {
    try {
        posix::CSimpleCmdExec::RunCommand("exit 3");
        return false;
    } catch (const posix::CCommandFailure& failure) {
        if (failure.GetCode() != 3)
            return false;
    }
    try {
        ZfsDatasetEnumerator::generateQuotaName("1001x/", "userquota");
    } catch (const exc::CRuntimeExc& error) {
        return dynamic_cast<const std::nested_exception*>(&error) != nullptr &&
               logging::Describe(error) == "Failed to generate ZFS quota name for [1001x/].: "
                                           "Unknown user: [1001x/].";
    }
    return false;
}

bool RecordsHaveTheirMembersInOrder() {
    const auto [value, source, inheritedFrom] = AuxPropValue{"v", "s", "i"};
    const auto [unparsed, type, text, parent] = PropSource{1, PropSource::Type::Local, "t", "p"};
    const auto [bytes, unit, kind] = ZfsProperties::SpaceSize::FromString("1.5K");
    const auto [name, size, allocated, properties, state, devices, spares, logs, caches, metas] =
        Zpool();
    const Zpool::VirtualDevice device{"m", Zpool::VirtualDeviceType::Mirror, {{{}, "d"}}};
    const ZpoolEnumerator::Config config{state, devices, logs, caches, metas, spares};
    return value + source + inheritedFrom + text + parent == "vsitp" && unparsed == 1 &&
           type == PropSource::Type::Local && bytes == 1536 && unit.Name() == "K" &&
           kind == ZfsProperties::SpaceSize::Kind::Value && name.empty() && size == allocated &&
           properties.guid.GetName() == "guid" && config.state == Zpool::State::Unavail &&
           device.devices.at(0).name == "d";
}

} // namespace

int main() {
    const bool errors = ErrorsAreCaught();
    const bool records = RecordsHaveTheirMembersInOrder();
    std::printf("errors: %d, records: %d\n", errors, records);
    return errors && records ? 0 : 1;
}
