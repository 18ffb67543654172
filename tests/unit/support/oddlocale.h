#ifndef VOINET_TESTS_UNIT_SUPPORT_ODDLOCALE_H
#define VOINET_TESTS_UNIT_SUPPORT_ODDLOCALE_H

#include <algorithm>
#include <array>
#include <locale>
#include <string>

namespace voinet_test {

/// While it lives, the program's locale writes 8080 as "8,080" and takes a dot for white space.
class OddLocale {
  public:
    OddLocale() : m_previous(std::locale::global(odd())) {}
    ~OddLocale() { std::locale::global(m_previous); }
    OddLocale(const OddLocale&) = delete;
    OddLocale& operator=(const OddLocale&) = delete;

  private:
    template <class Character>
    struct Grouping : std::numpunct<Character> {
        Character do_thousands_sep() const override { return Character(','); }
        std::string do_grouping() const override { return "\3"; }
    };

    struct DotIsSpace : std::ctype<char> {
        DotIsSpace() : std::ctype<char>(table().data()) {}

        static std::array<mask, table_size>& table() {
            static auto masks = [] {
                std::array<mask, table_size> copy{};
                std::copy_n(classic_table(), copy.size(), copy.begin());
                copy['.'] = space;
                return copy;
            }();
            return masks;
        }
    };

    static std::locale odd() {
        const std::locale narrow(std::locale::classic(), new Grouping<char>);
        const std::locale both(narrow, new Grouping<wchar_t>);
        return std::locale(both, new DotIsSpace);
    }

    std::locale m_previous;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_ODDLOCALE_H
