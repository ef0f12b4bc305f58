#pragma once

#include "../platform/zfslib_export.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace zfslib {

/// One row of `zfs get` or `zpool get`, as text.
struct AuxPropValue {
    std::string value;         ///< the VALUE column
    std::string source;        ///< the first word of the SOURCE column: "local", "inherited", "-"
    std::string inheritedFrom; ///< the parent behind "inherited from"; otherwise empty
};

/// The rows of one pool or dataset by the PROPERTY column.
using AuxPropValues = std::unordered_map<std::string, AuxPropValue>;

/// Where a property's value comes from: the SOURCE column of `zfs get` and `zpool get`.
struct ZFSLIB_EXPORT PropSource {
    /// The first word of the column.
    enum class Type {
        Default = 0,
        Local = 1,
        Inherited = 2,
        Temporary = 3,
        Received = 4,
        None = 5, ///< "-": the property has no source, or none was read
    };

    std::uint32_t unparsed = 0; ///< 1 once a source text was not one of the six; never reset
    Type type = Type::None;     ///< the last one that was understood
    std::string text;           ///< as the tool printed it
    std::string inheritedFrom;  ///< the dataset the value is inherited from; otherwise empty

    /// Errors: std::runtime_error for an unknown text.
    static Type StringToType(const std::string& text);
    /// Errors: std::runtime_error for a value outside the enumeration.
    static std::string TypeToString(const Type& type);
};

enum class PropState : std::uint32_t {
    Unset = 0,       ///< holds the default; nothing was stored
    Initialized = 1, ///< a value was stored
    Failed = 2,      ///< the last text given to Set could not be converted
};

namespace detail {

/// A value that many objects share and none changes. Like a std::shared_ptr that is never empty,
/// but half as wide, and what is kept for ever costs no counting, which threads would wait for one
/// another at: a set of properties holds a hundred of these.
template <typename T>
class Shared {
public:
    template <typename... Args>
    static Shared Make(Args&&... args) {
        return Shared(new Block{{1}, T{std::forward<Args>(args)...}});
    }
    Shared(const Shared& other) noexcept : block_(other.block_) {
        if (block_->uses.load(std::memory_order_relaxed) != forever)
            block_->uses.fetch_add(1, std::memory_order_relaxed);
    }
    Shared& operator=(Shared other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }
    ~Shared() {
        if (block_->uses.load(std::memory_order_relaxed) != forever &&
            block_->uses.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete block_;
    }

    const T& operator*() const noexcept { return block_->value; }
    const T* operator->() const noexcept { return &block_->value; }

    /// Never frees the value from now on. To be called before others have copies.
    void KeepForever() noexcept { block_->uses = forever; }

private:
    struct Block {
        std::atomic<std::size_t> uses;
        const T value;
    };
    static constexpr std::size_t forever = 0;

    explicit Shared(Block* block) noexcept : block_(block) {}
    Block* block_;
};

/// Makes the sources of properties. The common ones are one for the whole process, and of those of
/// one dataset that are inherited, neighbours from the same parent share one.
class ZFSLIB_EXPORT Sources {
public:
    /// The source of a property that none was recorded for.
    static const Shared<PropSource>& None();

    /// The source that follows `previous` when `text` and `inheritedFrom` are recorded.
    Shared<PropSource> Next(const PropSource& previous, std::string_view text,
                            std::string_view inheritedFrom);

private:
    Shared<PropSource> latest_ = None();
};

ZFSLIB_EXPORT void LogConversionFailure(const std::exception& error);
[[noreturn]] ZFSLIB_EXPORT void ThrowResetProhibited(const std::string& name);

template <typename T>
inline constexpr bool hasDefaultConversions =
    std::is_same_v<T, std::string> || std::is_same_v<T, bool> || std::is_same_v<T, unsigned long>;

} // namespace detail

/// A property of a pool or dataset: its name as the tools print it, its typed value with the
/// default that stands until one is read, the value's text, and its source. A value is stored
/// once; a second one is refused. What does not change from dataset to dataset (name, default,
/// conversions) is shared between copies, and so are the common sources. A moved-from property
/// keeps its name and default; its text and value are unspecified. Conversions must be stateless:
/// copies share them, across threads too. References to name and source hold until the next
/// SetSource or assignment.
template <typename T>
class ZFSLIB_EXPORT Property {
public:
    /// @{
    /// The conversions between value and text. FromString refuses a text by throwing.
    using FromString = std::function<T(const std::string&)>;
    using ToString = std::function<std::string(const T&)>;
    /// @}

    /// The same for every property; no tool prints it.
    static constexpr const char* noPropMarker = "#! no prop";

    /// A property with the default conversions of its type: std::string, bool or unsigned long.
    template <typename U = T, typename = std::enable_if_t<detail::hasDefaultConversions<U>>>
    Property(std::string name, const T& def)
        : Property(std::move(name), def, &Property::DefaultFromString, &Property::DefaultToString) {
    }

    /// A property with conversions of its own; its text is that of the default.
    /// Errors: std::bad_function_call when `toString` is empty, and what it throws.
    Property(std::string name, const T& def, FromString fromString, ToString toString);

    Property(const Property&) = default;
    /// Leaves `other` its name.
    Property(Property&& other) noexcept;
    /// @{
    /// Takes over everything but the default: the target keeps the one it was constructed with.
    Property& operator=(const Property& other);
    Property& operator=(Property&& other) noexcept;
    /// @}
    ~Property() = default;

    /// Stores a value. Errors: std::runtime_error "Error, property reset prohibited: [name]" unless
    /// the state is Unset; what the conversion to text throws.
    void Init(const T& value);

    /// Converts a text and stores its value. A text that does not convert is logged (warning) and
    /// makes the state Failed; the value stays, and the text is kept as it came. Errors: as Init.
    Property& Set(const std::string& text);

    /// Records where the value came from. An unknown source text is logged (info) and marked as
    /// unparsed; the type stays.
    void SetSource(const std::string& sourceText, const std::string& inheritedFrom);

    /// Set and SetSource from the row of the property's name; without one nothing changes.
    void SetSilent(const AuxPropValues& rows);

    /// Set and SetSource from the columns of a row. Of the rows of one dataset, `sources` lets
    /// those that are equal share their source.
    void SetRow(std::string_view value, std::string_view source, std::string_view inheritedFrom,
                detail::Sources& sources);

    /// Makes copies cheaper, and keeps what they share until the process ends: for a property that
    /// lives as long. To be called before there are copies.
    void ShareForever() noexcept;

    /// @{
    /// The built-in conversions. Text "-" is the empty text; only "on" is true; numbers are read
    /// as by std::stoul, whatever the locale.
    static T DefaultFromString(const std::string& text);
    static std::string DefaultToString(const T& value);
    /// @}

    /// As the tools print it.
    [[nodiscard]] const std::string& GetName() const { return definition_->name; }
    /// The default until a value is stored.
    [[nodiscard]] const T& GetValue() const { return value_; }
    /// What it was constructed with.
    [[nodiscard]] const T& GetDefault() const { return *defaultValue_; }
    /// The text of the value; after a failed Set the text that did not convert.
    [[nodiscard]] const std::string& GetText() const { return text_; }
    /// Whether a value was stored.
    [[nodiscard]] PropState GetState() const { return state_; }
    /// Where the value came from; its type is None until SetSource.
    [[nodiscard]] const PropSource& GetSource() const { return *source_; }

private:
    struct Definition {
        std::string name;
        FromString fromString;
        ToString toString;
    };

    void StoreText();

    detail::Shared<Definition> definition_;
    detail::Shared<PropSource> source_;
    detail::Shared<T> defaultValue_; ///< kept by what is moved from
    std::string text_;
    T value_;
    PropState state_ = PropState::Unset;
};

template <typename T>
Property<T>::Property(std::string name, const T& def, FromString fromString, ToString toString)
    : definition_(detail::Shared<Definition>::Make(std::move(name), std::move(fromString),
                                                   std::move(toString))),
      source_(detail::Sources::None()), defaultValue_(detail::Shared<T>::Make(def)),
      text_(definition_->toString(def)), value_(def) {}

// The shared parts are copied even here, so that a moved-from property can still tell its name.
// NOLINTBEGIN(performance-move-constructor-init)
template <typename T>
Property<T>::Property(Property&& other) noexcept
    : definition_(other.definition_), source_(other.source_), defaultValue_(other.defaultValue_),
      text_(std::move(other.text_)), value_(std::move(other.value_)), state_(other.state_) {}
// NOLINTEND(performance-move-constructor-init)

template <typename T>
Property<T>& Property<T>::operator=(const Property& other) {
    if (this != &other)
        *this = Property(other);
    return *this;
}

template <typename T>
Property<T>& Property<T>::operator=(Property&& other) noexcept {
    if (this == &other)
        return *this;
    definition_ = other.definition_;
    source_ = other.source_;
    text_ = std::move(other.text_);
    state_ = other.state_;
    value_ = std::move(other.value_);
    return *this;
}

template <typename T>
void Property<T>::Init(const T& value) {
    if (state_ != PropState::Unset)
        detail::ThrowResetProhibited(GetName());
    state_ = PropState::Initialized;
    value_ = value;
    text_ = definition_->toString(value_);
}

template <typename T>
Property<T>& Property<T>::Set(const std::string& text) {
    text_ = text;
    StoreText();
    return *this;
}

template <typename T>
void Property<T>::StoreText() {
    try {
        static_cast<void>(definition_->fromString(text_));
    } catch (const std::exception& error) {
        detail::LogConversionFailure(error);
        state_ = PropState::Failed;
        return;
    }
    // Converted again rather than kept from above: an error now is Init's, and the caller's.
    Init(definition_->fromString(text_));
}

template <typename T>
void Property<T>::SetSource(const std::string& sourceText, const std::string& inheritedFrom) {
    source_ = detail::Sources().Next(*source_, sourceText, inheritedFrom);
}

template <typename T>
void Property<T>::SetSilent(const AuxPropValues& rows) {
    const auto row = rows.find(GetName());
    if (row == rows.end())
        return;
    Set(row->second.value);
    SetSource(row->second.source, row->second.inheritedFrom);
}

template <typename T>
void Property<T>::SetRow(std::string_view value, std::string_view source,
                         std::string_view inheritedFrom, detail::Sources& sources) {
    text_ = value;
    StoreText();
    source_ = sources.Next(*source_, source, inheritedFrom);
}

template <typename T>
void Property<T>::ShareForever() noexcept {
    definition_.KeepForever();
    defaultValue_.KeepForever();
}

/// @{
/// The built-in conversions, as the class declares them.
template <>
ZFSLIB_EXPORT std::string Property<std::string>::DefaultFromString(const std::string& text);
template <>
ZFSLIB_EXPORT std::string Property<std::string>::DefaultToString(const std::string& value);
template <>
ZFSLIB_EXPORT bool Property<bool>::DefaultFromString(const std::string& text);
template <>
ZFSLIB_EXPORT std::string Property<bool>::DefaultToString(const bool& value);
template <>
ZFSLIB_EXPORT unsigned long Property<unsigned long>::DefaultFromString(const std::string& text);
template <>
ZFSLIB_EXPORT std::string Property<unsigned long>::DefaultToString(const unsigned long& value);
/// @}

extern template class Property<std::string>;
extern template class Property<bool>;
extern template class Property<unsigned long>;
extern template class Property<double>;

} // namespace zfslib
