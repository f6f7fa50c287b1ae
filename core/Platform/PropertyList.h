#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace tactora {

// One value of a property list (an Info.plist, the installation cache) with everything below it:
// text, a whole number, a real number, a truth value, a date, bytes, an array or a dictionary.
class PropertyList {
public:
    // A point in time as property lists keep it: seconds since 2001-01-01 00:00 UTC.
    struct Date {
        double secondsSince2001 = 0;
        bool operator==(const Date&) const = default;
    };
    using Data = std::vector<std::uint8_t>;
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList>;
    using Value = std::variant<std::string, std::int64_t, double, bool, Date, Data, Array, Dictionary>;

    PropertyList() = default;
    PropertyList(std::string text) : value_(std::move(text)) {}
    PropertyList(const char* text) : value_(std::string(text)) {}
    PropertyList(std::int64_t number) : value_(number) {}
    PropertyList(int number) : value_(std::int64_t{number}) {}
    PropertyList(double number) : value_(number) {}
    PropertyList(bool truth) : value_(truth) {}
    PropertyList(Date date) : value_(date) {}
    PropertyList(Data bytes) : value_(std::move(bytes)) {}
    PropertyList(Array items) : value_(std::move(items)) {}
    PropertyList(Dictionary entries) : value_(std::move(entries)) {}

    const Value& value() const { return value_; }
    // The value as a `T`, or null when it holds another kind.
    template <class T>
    const T* get() const {
        return std::get_if<T>(&value_);
    }
    bool operator==(const PropertyList&) const = default;

private:
    Value value_ = std::string();
};

}  // namespace tactora
