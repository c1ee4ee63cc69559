#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "agent/bounds_checked.h"
#include "host/text/scan_format.h"

namespace {

using Host::DigitValue;
using Host::Directive;
using Host::IsSpace;
using Host::Length;

// Half the address space: no object is larger.
constexpr size_t maxTargetBytes = std::numeric_limits<size_t>::max() / 2;

enum class Outcome {
    matched,
    mismatch,   // the text does not match the format
    textEnded,  // the text ended before the directive could begin
    violation,  // the format is not supported, or a target cannot be written
};

// A number as written in the text. It has no value yet, because an overlong number is converted differently for each
// type of target.
struct Digits {
    bool negative = false;
    unsigned int base = 10;
    const char* begin = nullptr;
    const char* end = nullptr;
};

// False if the number without its sign exceeds limit.
bool Magnitude(const Digits& digits, uintmax_t limit, uintmax_t& magnitude) {
    magnitude = 0;
    for (const char* p = digits.begin; p != digits.end; ++p) {
        const uintmax_t digit = DigitValue(*p);
        if (digit > limit || magnitude > (limit - digit) / digits.base) {
            return false;
        }
        magnitude = magnitude * digits.base + digit;
    }
    return true;
}

template <typename Signed>
Signed SignedValue(const Digits& digits) {
    uintmax_t magnitude = 0;
    const bool fits = Magnitude(digits, static_cast<uintmax_t>(std::numeric_limits<Signed>::max()), magnitude);
    if (digits.negative) {
        return fits ? static_cast<Signed>(-static_cast<intmax_t>(magnitude)) : std::numeric_limits<Signed>::min();
    }
    return fits ? static_cast<Signed>(magnitude) : std::numeric_limits<Signed>::max();
}

// A minus sign negates modulo the type, as in strtoul(3), unless the number exceeds the limit.
template <typename Unsigned>
Unsigned UnsignedValue(const Digits& digits) {
    uintmax_t magnitude = 0;
    if (!Magnitude(digits, std::numeric_limits<Unsigned>::max(), magnitude)) {
        return std::numeric_limits<Unsigned>::max();
    }
    return static_cast<Unsigned>(digits.negative ? 0 - magnitude : magnitude);
}

// The kernel's tables contain fields wider than a word, such as IPv6 addresses. For those only zero or non-zero
// matters.
template <typename Unsigned>
Unsigned LowDigitsValue(const Digits& digits) {
    uintmax_t low = 0;
    bool isZero = true;
    for (const char* p = digits.begin; p != digits.end; ++p) {
        const unsigned int digit = DigitValue(*p);
        low = (low << 4) | digit;
        isZero = isZero && digit == 0;
    }
    const auto value = static_cast<Unsigned>(digits.negative ? 0 - low : low);
    return value == 0 && !isZero ? Unsigned{1} : value;
}

class Scanner {
public:
    Scanner(const char* text, va_list targets) : at_(text) { va_copy(targets_, targets); }
    ~Scanner() { va_end(targets_); }
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    int Scan(const char* format);

private:
    void SkipSpaces();
    Outcome Literal(char c);
    Outcome Convert(const Directive& directive);
    Outcome Number(const Directive& directive);
    Outcome Text(const Directive& directive);
    Outcome StoreNumber(const Directive& directive, const Digits& digits);
    template <typename Signed>
    Outcome StoreAs(char conversion, const Digits& digits);
    template <typename Target>
    Outcome Store(Target value);

    const char* at_;
    va_list targets_;
    int assigned_ = 0;
    bool hasConverted_ = false;
};

int Scanner::Scan(const char* format) {
    const char* p = format;
    while (*p != '\0') {
        Outcome outcome = Outcome::matched;
        if (IsSpace(*p)) {
            ++p;
            SkipSpaces();
        } else if (*p != '%') {
            outcome = Literal(*p);
            ++p;
        } else {
            ++p;
            Directive directive;
            outcome = Host::ReadDirective(p, directive) ? Convert(directive) : Outcome::violation;
        }
        switch (outcome) {
            case Outcome::matched:
                break;
            case Outcome::mismatch:
                return assigned_;
            case Outcome::textEnded:
                return hasConverted_ ? assigned_ : -1;
            case Outcome::violation:
                return -1;
        }
    }
    return assigned_;
}

void Scanner::SkipSpaces() {
    while (IsSpace(*at_)) {
        ++at_;
    }
}

Outcome Scanner::Literal(char c) {
    if (*at_ == '\0') {
        return Outcome::textEnded;
    }
    if (*at_ != c) {
        return Outcome::mismatch;
    }
    ++at_;
    return Outcome::matched;
}

template <typename Target>
Outcome Scanner::Store(Target value) {
    auto* target = va_arg(targets_, Target*);
    if (target == nullptr) {
        return Outcome::violation;
    }
    *target = value;
    return Outcome::matched;
}

Outcome Scanner::Convert(const Directive& directive) {
    if (directive.conversion != '[') {
        SkipSpaces();
    }
    if (*at_ == '\0') {
        return Outcome::textEnded;
    }
    const bool isText = directive.conversion == 's' || directive.conversion == '[';
    const Outcome outcome = isText ? Text(directive) : Number(directive);
    if (outcome == Outcome::matched) {
        hasConverted_ = true;
        assigned_ += directive.suppressed ? 0 : 1;
    }
    return outcome;
}

Outcome Scanner::Number(const Directive& directive) {
    Digits digits;
    digits.base = directive.conversion == 'x' ? 16 : 10;
    if (*at_ == '-' || *at_ == '+') {
        digits.negative = *at_ == '-';
        ++at_;
    }
    if (digits.base == 16 && at_[0] == '0' && (at_[1] == 'x' || at_[1] == 'X')) {
        // A prefix without a digit after it is the number 0, as in the C library.
        digits.begin = at_;
        digits.end = at_ + 1;
        at_ += 2;
    }
    const char* first = at_;
    while (DigitValue(*at_) < digits.base) {
        ++at_;
    }
    if (at_ != first) {
        digits.begin = first;
        digits.end = at_;
    }
    if (digits.begin == digits.end) {
        return Outcome::mismatch;
    }
    return directive.suppressed ? Outcome::matched : StoreNumber(directive, digits);
}

Outcome Scanner::Text(const Directive& directive) {
    const char* first = at_;
    const auto belongs = [&directive](char c) {
        return directive.conversion == 's' ? !IsSpace(c) : directive.set.test(static_cast<unsigned char>(c));
    };
    while (*at_ != '\0' && belongs(*at_)) {
        ++at_;
    }
    const auto length = static_cast<size_t>(at_ - first);
    if (length == 0) {
        return Outcome::mismatch;
    }
    if (directive.suppressed) {
        return Outcome::matched;
    }
    char* target = va_arg(targets_, char*);
    const size_t size = va_arg(targets_, size_t);
    if (target == nullptr || size > maxTargetBytes) {
        return Outcome::violation;
    }
    if (length + 1 > size) {
        if (size > 0) {
            target[0] = '\0';
        }
        return Outcome::mismatch;
    }
    std::memcpy(target, first, length);
    target[length] = '\0';
    return Outcome::matched;
}

template <typename Signed>
Outcome Scanner::StoreAs(char conversion, const Digits& digits) {
    using Unsigned = std::make_unsigned_t<Signed>;
    switch (conversion) {
        case 'd':
            return Store(SignedValue<Signed>(digits));
        case 'x':
            return Store(LowDigitsValue<Unsigned>(digits));
        default:
            return Store(UnsignedValue<Unsigned>(digits));
    }
}

Outcome Scanner::StoreNumber(const Directive& directive, const Digits& digits) {
    switch (directive.length) {
        case Length::l:
            return StoreAs<long>(directive.conversion, digits);
        case Length::ll:
            return StoreAs<long long>(directive.conversion, digits);
        case Length::none:
            break;
    }
    return StoreAs<int>(directive.conversion, digits);
}

}  // namespace

int sscanf_s(const char* text, const char* format, ...) {
    if (text == nullptr || format == nullptr) {
        return -1;
    }
    va_list targets;
    va_start(targets, format);
    Scanner scanner(text, targets);
    const int assigned = scanner.Scan(format);
    va_end(targets);
    return assigned;
}
