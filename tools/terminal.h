#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace kelcache {

bool IsTerminal(std::FILE* stream);

/// Columns for text on a stream: those of the terminal, COLUMNS in the environment when that is
/// less, 80 when neither is known.
unsigned int ColumnsOf(std::FILE* stream);

/// The text with each byte of a control character, or of what is no UTF-8, as "\x1b": what comes
/// from a file or its name must not steer a terminal.
std::string Printable(std::string_view text);

/// The columns that printable text takes up, rather too many than too few.
unsigned int WidthOf(std::string_view printable);

/// The text without its first characters, so that it takes up at most `columns`.
std::string_view TailOf(std::string_view printable, unsigned int columns);

/// Prints a line, printable where the stream is a terminal and otherwise byte for byte. The one way
/// in which names and messages reach a person.
void PrintLine(std::FILE* stream, const std::string& line);

/// A line of this command on standard error.
void PrintError(const std::string& line);

}  // namespace kelcache
