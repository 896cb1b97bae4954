// EnumMap: a constant table from the values of an enumeration to their printable names, used where
// a printout names tags read from a file (the alias record's variable records). Built from a
// static array of pairs, which it does not own; constant-initialised, so usable during static
// initialisation.
#pragma once

class EnumMap {
  public:
    struct Pair {
        int value;
        char const* name;
    };

    constexpr EnumMap(Pair const* pairs, unsigned int count) : m_pairs(pairs), m_count(count) {}

    // The name of `value`, or null when the table does not know it.
    char const* mapValue(int value) const {
        for (unsigned int i = 0; i < m_count; ++i)
            if (m_pairs[i].value == value) return m_pairs[i].name;
        return nullptr;
    }

  private:
    Pair const* m_pairs;
    unsigned int m_count;
};
