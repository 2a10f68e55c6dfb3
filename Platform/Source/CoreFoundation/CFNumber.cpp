// Numbers, and the two truth values. Every integer is kept in 64 bits, every fraction as a
// double, together with its original type.
#include <CoreFoundation/CFNumber.h>

#include "CoreFoundation/Object.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

struct __CFNumber : kiv::cf::Object
{
    __CFNumber(CFNumberType createdAs, int64_t integerValue, double realValue) noexcept;

    CFNumberType numberType;
    int64_t integer; // the type decides which member is used
    double real;
};

struct __CFBoolean : kiv::cf::Object
{
    explicit constexpr __CFBoolean(bool truth) noexcept;

    bool value;
};

namespace
{
enum class Kind : uint8_t
{
    integer,
    real,
};
struct Form
{
    Kind kind;
    uint8_t size; // bytes
};

// Indexed by CFNumberType; the sizes of C types are this machine's.
constexpr std::array<Form, kCFNumberMaxType + 1> kForms = {{
    {Kind::integer, 0},                 // no type has the value 0
    {Kind::integer, 1},                 // SInt8
    {Kind::integer, 2},                 // SInt16
    {Kind::integer, 4},                 // SInt32
    {Kind::integer, 8},                 // SInt64
    {Kind::real, 4},                    // Float32
    {Kind::real, 8},                    // Float64
    {Kind::integer, sizeof(char)},      // Char
    {Kind::integer, sizeof(short)},     // Short
    {Kind::integer, sizeof(int)},       // Int
    {Kind::integer, sizeof(long)},      // Long
    {Kind::integer, sizeof(long long)}, // LongLong
    {Kind::real, sizeof(float)},        // Float
    {Kind::real, sizeof(double)},       // Double
    {Kind::integer, sizeof(CFIndex)},   // CFIndex
    {Kind::integer, sizeof(long)},      // NSInteger
    {Kind::real, sizeof(double)},       // CGFloat
}};

const Form *formOf(CFNumberType type) noexcept
{
    return type >= 1 && type <= kCFNumberMaxType ? &kForms[static_cast<size_t>(type)] : nullptr;
}

template <class T>
T loadAs(const void *from) noexcept
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

int64_t loadInteger(const void *from, size_t size) noexcept
{
    switch (size)
    {
    case 1:
        return loadAs<int8_t>(from);
    case 2:
        return loadAs<int16_t>(from);
    case 4:
        return loadAs<int32_t>(from);
    default:
        return loadAs<int64_t>(from);
    }
}

template <class T>
int64_t storeAs(int64_t value, void *to) noexcept
{
    const auto stored = static_cast<T>(value);
    std::memcpy(to, &stored, sizeof stored);
    return stored;
}

// Stores the low bits of `value` in `size` bytes and returns their value.
int64_t storeInteger(int64_t value, size_t size, void *to) noexcept
{
    switch (size)
    {
    case 1:
        return storeAs<int8_t>(value, to);
    case 2:
        return storeAs<int16_t>(value, to);
    case 4:
        return storeAs<int32_t>(value, to);
    default:
        return storeAs<int64_t>(value, to);
    }
}

constexpr double kTwoTo63 = 9223372036854775808.0;

bool isWholeInt64(double value) noexcept
{
    return value >= -kTwoTo63 && value < kTwoTo63 && std::trunc(value) == value;
}

// Truncates towards zero. Values out of range become the nearest limit, and NaN becomes 0.
int64_t truncated(double value) noexcept
{
    if (std::isnan(value))
        return 0;
    if (value >= kTwoTo63)
        return std::numeric_limits<int64_t>::max();
    return value < -kTwoTo63 ? std::numeric_limits<int64_t>::min() : static_cast<int64_t>(value);
}

// The double as an integer of `size` bytes, limited to that size's range.
int64_t truncatedTo(double value, size_t size) noexcept
{
    const int64_t highest = std::numeric_limits<int64_t>::max() >> (64 - 8 * size);
    const int64_t whole = truncated(value);
    return whole > highest ? highest : whole < -highest - 1 ? -highest - 1 : whole;
}

bool storeReal(double value, size_t size, void *to) noexcept
{
    if (size == sizeof(double))
    {
        std::memcpy(to, &value, sizeof value);
        return true;
    }
    const auto single = static_cast<float>(value);
    std::memcpy(to, &single, sizeof single);
    return std::isnan(value) || static_cast<double>(single) == value;
}

bool isReal(const __CFNumber &number) noexcept
{
    return formOf(number.numberType)->kind == Kind::real;
}

// Numbers are equal by value, whatever their types: a whole double equals its integer.
bool equalNumbers(const kiv::cf::Object &leftObject, const kiv::cf::Object &rightObject)
{
    const auto whole = [](const __CFNumber &number) { return !isReal(number) || isWholeInt64(number.real); };
    const auto value = [](const __CFNumber &number)
    { return isReal(number) ? static_cast<int64_t>(number.real) : number.integer; };
    const auto &left = static_cast<const __CFNumber &>(leftObject);
    const auto &right = static_cast<const __CFNumber &>(rightObject);
    if (whole(left) != whole(right))
        return false;
    if (whole(left))
        return value(left) == value(right);
    return left.real == right.real || (std::isnan(left.real) && std::isnan(right.real));
}

CFHashCode hashNumber(const kiv::cf::Object &object)
{
    const auto &number = static_cast<const __CFNumber &>(object);
    if (!isReal(number))
        return static_cast<CFHashCode>(number.integer);
    if (isWholeInt64(number.real))
        return static_cast<CFHashCode>(static_cast<int64_t>(number.real));
    return std::isnan(number.real) ? 0 : std::bit_cast<CFHashCode>(number.real);
}

constexpr kiv::cf::Type kNumberType{kiv::cf::kTypeNumber, nullptr, equalNumbers, hashNumber};
constexpr kiv::cf::Type kBooleanType{kiv::cf::kTypeBoolean, nullptr, nullptr, nullptr};
} // namespace

constexpr __CFBoolean::__CFBoolean(bool truth) noexcept
    : Object{kBooleanType, kiv::cf::kForEver}, value{truth}
{
}

namespace
{
constinit __CFBoolean yes{true};
constinit __CFBoolean no{false};
} // namespace

constinit const CFBooleanRef kCFBooleanTrue = &yes;
constinit const CFBooleanRef kCFBooleanFalse = &no;

__CFNumber::__CFNumber(CFNumberType createdAs, int64_t integerValue, double realValue) noexcept
    : Object{kNumberType}, numberType{createdAs}, integer{integerValue}, real{realValue}
{
}

CFTypeID CFBooleanGetTypeID(void)
{
    return kiv::cf::kTypeBoolean;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    return boolean->value;
}

CFTypeID CFNumberGetTypeID(void)
{
    return kiv::cf::kTypeNumber;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void *valuePtr)
{
    const Form *form = formOf(theType);
    if (form == nullptr || valuePtr == nullptr)
        return nullptr;
    if (form->kind == Kind::integer)
        return kiv::cf::create<__CFNumber>(0, theType, loadInteger(valuePtr, form->size), 0.0);
    const double real =
        form->size == sizeof(float) ? static_cast<double>(loadAs<float>(valuePtr)) : loadAs<double>(valuePtr);
    return kiv::cf::create<__CFNumber>(0, theType, int64_t{0}, real);
}

CFNumberType CFNumberGetType(CFNumberRef number)
{
    return number->numberType;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void *valuePtr)
{
    const Form *form = formOf(theType);
    if (form == nullptr)
        return false;
    if (form->kind == Kind::real)
    {
        const double real = isReal(*number) ? number->real : static_cast<double>(number->integer);
        const bool kept =
            isReal(*number) || (isWholeInt64(real) && static_cast<int64_t>(real) == number->integer);
        return storeReal(real, form->size, valuePtr) && kept;
    }
    const int64_t whole = isReal(*number) ? truncatedTo(number->real, form->size) : number->integer;
    const int64_t stored = storeInteger(whole, form->size, valuePtr);
    if (isReal(*number))
        return isWholeInt64(number->real) && static_cast<int64_t>(number->real) == whole;
    return stored == whole;
}
