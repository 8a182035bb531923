#pragma once
// TVELFile: a file with line operations, for plain text files such as playlists.

#include "veldan/base/file.h"

namespace veldan {

class TVELFile : public TFile {
  public:
    using TFile::TFile;

    // Reads up to a line feed, the end of the file, or size - 1 bytes, whichever comes
    // first, into buf (which holds size bytes) and terminates it; the line feed is not
    // kept, and neither is a carriage return standing last. Returns the number of bytes
    // before the line feed, the carriage return included: an empty line and the end of
    // the file both return 0. A size below 1 reads nothing and leaves buf untouched.
    long ReadLine(char* buf, long size);
    // Like ReadLine, but skips empty lines and comment lines; returns 0 at the end.
    // Kept: a line counts as a comment when its first character is "/" or its second
    // is, so "a/b" is skipped as well as "// note".
    long ReadValidLine(char* buf, long size);
    // Writes text and a line feed; returns the number of bytes written.
    long WriteLine(const char* text);
    // True when the position is at or past the end of the file.
    bool Eof() const;
};

}  // namespace veldan
