// Text as ordered bytes.
//
//     text              the bytes, as a text piece (ordered_bytes.h)
//     text:nocase       the bytes of the text with its case folded as Unicode has it, likewise
//     text:LANGUAGE     language_type.h
//     text:LENGTH       the bytes; a text with more than LENGTH is refused
//     natural           a text piece, in which a run of digits is 30, the compact number of its
//                       digits without leading zeros, and these digits; behind the piece, for each
//                       run that has them, the compact number of its leading zeros, then 7f
//     version           below
//
// Versions stand as GNU sort -V has them. Its comparison walks both texts, runs of other characters
// and runs of digits in turn; a tilde stands before the end, the end before a run of digits, that
// before letters, those before all else:
//
//     1 byte   00 the empty text, 01 ".", 02 "..", 03 another one that begins with a point, 04 else
//     then the text without its suffixes (.tar.gz), and if it has any, 01 and the text with them:
//              01          a tilde
//              02          a run of zeros before a tilde
//              03          the end; zeros before it do not count
//              04          a run of digits: compact number of digits without leading zeros, digits
//              41 to 7a    letters
//              80 c        any other byte c
//     00       where it has no suffixes
//
// What is numbers apart from leading zeros is equal there, as with sort -s -V.

#pragma once

#include <memory>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

std::unique_ptr<OrderedType> makeText(const TypeText& text);
std::unique_ptr<OrderedType> makeNatural(const TypeText& text);
std::unique_ptr<OrderedType> makeVersion(const TypeText& text);

}  // namespace tvsort::host
