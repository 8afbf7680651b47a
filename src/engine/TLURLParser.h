// Checking and splitting RFC 3986 URI references, and reading the file path
// of the file URLs that xmeml stores in its "pathurl" elements.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Stateless; nothing here throws except std::bad_alloc. Only what the
// application needs is split out: the scheme and the path. The authority is
// checked but not returned; the query and fragment are checked and dropped.
class TLURLParser
{
public:
    // The parts of a URI reference that name a file.
    struct Components
    {
        std::string scheme; // as written (any case); empty for a relative reference
        std::string path;   // still percent-encoded; may be empty or relative
    };

    // Splits a URI reference ("file://localhost/a%20b.mov", "/a/b.mov",
    // "media/a.mov"). nullopt when the text is not one: a character that
    // must be escaped and is not (a blank, a quote, non-ASCII bytes, ...), a
    // "%" without two hex digits, more than one "#", a text before the first
    // ":" (ahead of any "/", "?" or "#") that is not a scheme (a letter, then
    // letters, digits, "+", "-" or "."; so "1a:b" and ":b" fail), an
    // authority with a port that is not digits or with misplaced "[", "]" or
    // "@", or a "[" or "]" in the path, query or fragment. The empty text is
    // a valid (empty) reference.
    static std::optional<Components> parseURIReference(std::string_view text);

    // The decoded path of a URL, whatever its scheme
    // ("file://localhost/a%20b.mov" and "file:///a%20b.mov" give "/a b.mov",
    // "http://server/media/h.mov" gives "/media/h.mov"); a reference without
    // a scheme gives its own decoded path, relative or not. The host is not
    // checked; a trailing "/" is dropped (except from "/"). nullopt when the
    // text is not a URI reference (see parseURIReference), and when the path
    // is empty or decodes to something that is not UTF-8 or holds a NUL byte
    // ("%FF", "%00").
    static std::optional<std::string> filePathForURL(std::string_view url);
};
