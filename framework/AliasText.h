// Text conversion between UTF-8, the form of every name held in memory, and the 8-bit Mac Roman
// encoding that alias records store their volume, file and path names in. Every character Mac Roman
// has survives a round trip (decomposed accents are composed first); a character it lacks, or a
// malformed UTF-8 sequence, becomes the visible substitute '?', so a lossy name shows rather than
// silently losing characters.
#pragma once

#include "framework/AutoPtr.h"

// The substitute written for a character that has no Mac Roman form.
constexpr char kAliasSubstitute = '?';

// Converts a NUL-terminated UTF-8 string to Mac Roman. A null string gives an empty one. When
// `substituted` is given it receives the number of characters replaced by the substitute.
AutoPtr<char> utf8_to_qtalias(char const* utf8, unsigned int* substituted = nullptr);

// Converts a NUL-terminated Mac Roman string to UTF-8 (every byte has a character, so this never
// loses anything). A null string gives an empty one.
AutoPtr<char> qtalias_to_utf8(char const* alias);
