#include "zfstools/Property.h"

#include "util/internal/NeverDestroyed.h"
#include "util/str.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/logging.h"

#include <stdexcept>

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
const std::unordered_map<std::string, std::shared_ptr<const PropSource>>& SharedSources() {
    using Sources = std::unordered_map<std::string, std::shared_ptr<const PropSource>>;
    static const util::internal::NeverDestroyed<Sources> sources([] {
        Sources result;
        for (const char* text : {"default", "local", "inherited", "temporary", "received", "-"})
            result.emplace(text, std::make_shared<const PropSource>(
                                     PropSource{0, PropSource::StringToType(text), text, ""}));
        return result;
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

std::shared_ptr<const PropSource> NextSource(const PropSource& previous, const std::string& text,
                                             const std::string& inheritedFrom) {
    if (previous.unparsed == 0 && inheritedFrom.empty()) {
        const auto shared = SharedSources().find(text);
        if (shared != SharedSources().end())
            return shared->second;
    }
    PropSource next{previous.unparsed, previous.type, text, inheritedFrom};
    try {
        next.type = PropSource::StringToType(text);
    } catch (const std::exception& error) {
        _log.info("%1", error.what());
        next.unparsed = 1;
    }
    return std::make_shared<const PropSource>(std::move(next));
}

const std::shared_ptr<const PropSource>& NoSource() {
    static const util::internal::NeverDestroyed<std::shared_ptr<const PropSource>> source(
        std::make_shared<const PropSource>());
    return *source;
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
    return text == "-" ? std::string() : text;
}

template <>
std::string Property<std::string>::DefaultToString(const std::string& value) {
    return value;
}

template <>
bool Property<bool>::DefaultFromString(const std::string& text) {
    return text == "on";
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
