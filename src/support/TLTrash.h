// The user's Trash as the freedesktop.org Trash standard lays it out:
// the items in "files/", and beside each a ".trashinfo" record in "info/"
// saying where it came from and when, so that a desktop's Trash can show
// the item and put it back.
#pragma once

#include <functional>
#include <optional>
#include <string>

// Finds a free name in the Trash and writes the item's record under it.
// Moving the item there is the caller's part, with its own rights (the
// ordinary rename of TLFileManager, the administrator's "/bin/mv" of
// TLAuthorization). Stateless; callable from any thread, and from several
// programs at once: a name is taken by creating its record exclusively.
class TLTrash
{
public:
    // A name reserved in the Trash.
    struct Slot {
        std::string name;     // the item's name inside the Trash
        std::string itemPath; // where the item goes: <Trash>/files/<name>
        std::string infoPath; // its record: <Trash>/info/<name>.trashinfo
    };

    // The candidate names of an item, for attempt 1, 2, 3, ... in turn. Each
    // attempt must give a new name, or the reservation never ends.
    using NameRule = std::function<std::string(long attempt)>;

    // The Trash folder holding "files" and "info": the parent of
    // TLLocalPaths::trashDirectory().
    static std::string folder();

    // Creates the Trash's two folders when missing, then the record of the
    // item at `originalPath` (made absolute; it need not exist) under the
    // first candidate name whose record and item entry are both free. The
    // record holds the percent-encoded path and the local deletion time.
    // nullopt, with `error` saying why and no record left behind, when the
    // folders or the record cannot be made, for an empty `originalPath`, and
    // when a candidate is no plain name (empty, "." or "..", or holding a
    // "/" or a NUL), which would put the record or the item elsewhere.
    [[nodiscard]] static std::optional<Slot> reserveSlot(const std::string &originalPath,
                                                         const NameRule &names, std::string &error);

    // Gives a reserved name back by removing its record, for a move that
    // failed. Nothing happens when the record is already gone.
    static void releaseSlot(const Slot &slot);
};
