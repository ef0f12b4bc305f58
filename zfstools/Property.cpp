#include "zfstools/Property.h"

#include "util/internal/NeverDestroyed.h"
#include "util/str.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/logging.h"

#include <stdexcept>
#include <vector>

namespace zfslib {
namespace {

const EnumTexts<PropSource::Type>& SourceTexts() {
    using Type = PropSource::Type;
    static const EnumTexts<Type> texts{
        {Type::Default, "default"},     {Type::Local, "local"},
        {Type::Inherited, "inherited"}, {Type::Temporary, "temporary"},
        {Type::Received, "received"},   {Type::None, "-"},
    };
    return texts;
}

/// One record for each source without a parent: nearly all properties of a host share these.
const std::vector<detail::Shared<PropSource>>& CommonSources() {
    using Sources = std::vector<detail::Shared<PropSource>>;
    static const util::internal::NeverDestroyed<Sources> sources([] {
        Sources common;
        for (const char* text : {"default", "local", "-", "received", "temporary", "inherited"}) {
            common.push_back(detail::Shared<PropSource>::Make(
                std::uint32_t{0}, PropSource::StringToType(text), text, ""));
            common.back().KeepForever();
        }
        return common;
    }());
    return *sources;
}

} // namespace

PropSource::Type PropSource::StringToType(const std::string& text) {
    if (const Type* type = SourceTexts().Find(text))
        return *type;
    // "received" is accepted although the message does not offer it.
    throw std::runtime_error("Failed to convert source value from string: [" + text +
                             "], expected values are: [-, inherited, default, temporary, local]");
}

std::string PropSource::TypeToString(const Type& type) {
    return SourceTexts().Text(type, "Cannot convert source value to string: ");
}

namespace detail {

const Shared<PropSource>& Sources::None() {
    static const util::internal::NeverDestroyed<Shared<PropSource>> source([] {
        auto none = Shared<PropSource>::Make();
        none.KeepForever();
        return none;
    }());
    return *source;
}

Shared<PropSource> Sources::Next(const PropSource& previous, std::string_view text,
                                 std::string_view inheritedFrom) {
    if (previous.unparsed == 0 && inheritedFrom.empty()) {
        for (const Shared<PropSource>& common : CommonSources())
            if (common->text == text)
                return common;
    } else if (previous.unparsed == 0 && latest_->unparsed == 0 &&
               latest_->inheritedFrom == inheritedFrom && latest_->text == text) {
        return latest_;
    }
    PropSource next{previous.unparsed, previous.type, std::string(text),
                    std::string(inheritedFrom)};
    try {
        next.type = PropSource::StringToType(next.text);
    } catch (const std::exception& error) {
        _log.info("%1", error.what());
        next.unparsed = 1;
    }
    latest_ = Shared<PropSource>::Make(std::move(next));
    return latest_;
}

void LogConversionFailure(const std::exception& error) {
    _log.warn("%1", error.what());
}

void ThrowResetProhibited(const std::string& name) {
    throw std::runtime_error("Error, property reset prohibited: [" + name + "]");
}

} // namespace detail

static_assert(sizeof(unsigned long) == sizeof(std::uint64_t),
              "sizes and pool versions are kept as unsigned long, which must have 64 bits");

template <>
std::string Property<std::string>::DefaultFromString(const std::string& text) {
    return std::string_view(text) == "-" ? std::string() : text;
}

template <>
std::string Property<std::string>::DefaultToString(const std::string& value) {
    return value;
}

template <>
bool Property<bool>::DefaultFromString(const std::string& text) {
    return std::string_view(text) == "on";
}

template <>
std::string Property<bool>::DefaultToString(const bool& value) {
    return value ? "on" : "off";
}

template <>
unsigned long Property<unsigned long>::DefaultFromString(const std::string& text) {
    return util::StringToUnsignedLong(text);
}

template <>
std::string Property<unsigned long>::DefaultToString(const unsigned long& value) {
    return util::str(value);
}

template class Property<std::string>;
template class Property<bool>;
template class Property<unsigned long>;
template class Property<double>;

} // namespace zfslib
