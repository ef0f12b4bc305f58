#pragma once

#include "restore/HostState.h"
#include "zfslib_export.h"

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Parts of the reader of a state that can be called without any executor.
namespace zfslib::restore::internal {

/// Two texts that were read one after the other do not belong together: something changed between.
class ZFSLIB_EXPORT StateMoved : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    StateMoved(const StateMoved&) = default;
    StateMoved& operator=(const StateMoved&) = default;
    ~StateMoved() override;
};

/// What `get` printed for one dataset, snapshot, pool or device.
struct ObjectRows {
    std::string_view name; ///< looks into the values
    std::vector<PropertyValue> properties;
};

/// Asks for columns ("value", "received") of one property of one object, or of "all" its
/// properties, and nothing else. The answer is what the tool printed, its last newline included.
using AskAlone = std::function<std::string(std::string_view object, std::string_view property,
                                           std::string_view columns)>;

/// Which datasets above a root set a property themselves, by the property; the nearest comes last.
using SetAbove = std::map<std::string, std::vector<std::string>, std::less<>>;

/// What `zfs get -Hp -o name,property,source all` printed (`skeleton`) and, for the same objects,
/// `zfs get -Hp -o name,property,value,received,source all` (`values`; `hasReceived` says whether
/// that column is there, which `zpool get` has not), as values that look into `values` and `texts`.
///
/// A value may hold tabs and newlines, and with them rows that nobody has: the skeleton alone tells
/// which rows there are, and a row that its neighbours do not hold in its place is asked for alone.
/// A user property that is inherited is not asked for: it has its ancestor's value.
///
/// Linear in the texts. Errors: StateMoved when the two do not fit together; std::runtime_error for
/// a skeleton that cannot be read; those of `askAlone`.
[[nodiscard]] ZFSLIB_EXPORT std::vector<ObjectRows>
ReadPropertyRows(std::string_view skeleton, std::string_view values, bool hasReceived,
                 const AskAlone& askAlone, const SetAbove& above, StateTexts& texts);

/// The datasets above a root that set something, from their skeleton.
[[nodiscard]] ZFSLIB_EXPORT SetAbove ReadSetAbove(std::string_view skeleton);

/// What two skeletons of the same objects differ in, in words: "tank/a quota (local, was default)",
/// the first few; empty when nothing that was set and no object differs. Figures without a source
/// come and go while a host works, and do not count.
[[nodiscard]] ZFSLIB_EXPORT std::string DescribeMoves(std::string_view before,
                                                      std::string_view after);

} // namespace zfslib::restore::internal
