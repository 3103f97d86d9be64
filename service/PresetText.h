// Guards run over a preset's bytes before the XML parser sees them: a nesting
// bound (the parser recurses once per open element) and a NUL tail so that a
// multi-byte sequence cut short at the end cannot walk the parser past the
// text.
#pragma once

#include <string>

// Deeper documents are refused; no real preset comes near it.
constexpr unsigned kPresetMaxDepth = 256;

// The deepest element nesting the parser could reach in text, counted without
// parsing: comments, CDATA, declarations and quoted attribute values are
// stepped over as the parser would, every other "<" that does not close an
// element opens one. Stops counting once limit is exceeded.
unsigned PresetNestingDepth(const std::string& text, unsigned limit = kPresetMaxDepth);

// The text followed by enough NULs that no UTF-8 lead byte, however placed,
// can make a reader step over the terminator.
std::string PresetParserText(const std::string& text);
