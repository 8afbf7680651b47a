// Clip entries of smart bins and smart ranges.
#include "TLMediaItem.h"

TLMediaItem::TLMediaItem(std::optional<std::string> filePath, std::string shortName,
                         std::optional<std::string> uuid)
    : m_filePath(std::move(filePath)), m_shortName(std::move(shortName))
{
    setUuid(std::move(uuid));
}

std::shared_ptr<TLMediaItem> TLMediaItem::create(std::optional<std::string> filePath, std::string shortName,
                                                 std::optional<std::string> uuid)
{
    return std::make_shared<TLMediaItem>(std::move(filePath), std::move(shortName), std::move(uuid));
}

std::optional<std::string> TLMediaItem::filePath() const
{
    return guardedRead(m_filePath);
}

void TLMediaItem::setFilePath(std::optional<std::string> filePath)
{
    guardedWrite(m_filePath, std::move(filePath));
}

std::string TLMediaItem::shortName() const
{
    return guardedRead(m_shortName);
}

void TLMediaItem::setShortName(std::string shortName)
{
    guardedWrite(m_shortName, std::move(shortName));
}
