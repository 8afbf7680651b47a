// One clip of the project, shown inside a smart bin or a smart range.
#pragma once

#include "TLBinNode.h"

// A media item names a clip: the path of its media file (for its icon), the
// name shown, and the clip identifier by which the project finds the clip's
// xmeml element again (kept in uuid()). No children. Its parent is kept in
// memory for the outline but is not part of its archived form.
class TLMediaItem : public TLBinNode
{
public:
    // No path, empty name, no identifier.
    TLMediaItem() = default;
    TLMediaItem(std::optional<std::string> filePath, std::string shortName, std::optional<std::string> uuid);
    static std::shared_ptr<TLMediaItem> create(std::optional<std::string> filePath, std::string shortName,
                                               std::optional<std::string> uuid);

    TLBinNodeKind kind() const override { return TLBinNodeKind::mediaItem; }
    // The short name.
    std::string displayName() const override { return shortName(); }

    // The media file's path; nullopt when the clip has none.
    std::optional<std::string> filePath() const;
    void setFilePath(std::optional<std::string> filePath);
    std::string shortName() const;
    void setShortName(std::string shortName);

private:
    std::optional<std::string> m_filePath;
    std::string m_shortName;
};
