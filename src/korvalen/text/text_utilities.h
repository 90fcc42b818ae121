// Small utilities for texts.
#pragma once

#include "korvalen/text/strings.h"

namespace korvalen {

// Walks back from the end of the text to its second character, stopping at the first "/", and ends the text
// at the last `character`, or at each one when `every` is set. Returns the index where it stopped; 0 when it
// came to the start.
int cut_at_character(char *text, char character, bool every);

// Compares as strcmp does. Two nulls are equal; a null sorts before any text.
int compare_texts(const char *left, const char *right);

// Whether the text is longer than the suffix and ends with it.
bool ends_with(const char *text, const char *suffix);

// Removes the blanks at the end. Null is left alone.
void trim_trailing_blanks(char *text);

// "<a>_<b>", or null when a is null.
owned_string join_with_underscore(const char *a, const char *b);

// Overwrites the first character of the text that belongs to the set, and ends the text right behind it.
// Returns the length of the set.
std::size_t replace_first_of(char *text, const char *set, char replacement);

} // namespace korvalen
