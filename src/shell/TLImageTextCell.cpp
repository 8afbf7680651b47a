// The icon-and-text cell's geometry: image, title, editor and subtitle frames.
#include "TLImageTextCell.h"

#include "TLTextCoding.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double subtitleInset = 2.0;
constexpr double subtitleBottomGap = 1.0;
constexpr std::string_view ellipsis = "...";

// The length of a UTF-8 sequence from its lead byte; a byte that leads
// nothing counts alone, as TLTextCoding counts it.
std::size_t sequenceLength(unsigned char lead)
{
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    return 1;
}

// The longest prefix of `text` that takes at most `units` UTF-16 code units,
// never splitting a character.
std::string prefixOfUTF16Units(const std::string &text, std::size_t units)
{
    std::size_t offset = 0;
    std::size_t taken = 0;
    while (offset < text.size()) {
        std::size_t length = sequenceLength(static_cast<unsigned char>(text[offset]));
        if (offset + length > text.size())
            length = 1;
        const std::size_t needed = TLTextCoding::utf16Length(std::string_view(text).substr(offset, length));
        if (taken + needed > units)
            break;
        taken += needed;
        offset += length;
    }
    return text.substr(0, offset);
}

} // namespace

TLCellRect TLImageTextCell::imageRectForBounds(const TLCellRect &frame) const
{
    if (!m_image)
        return {};
    return {frame.x + imageMargin, std::ceil((frame.height - m_image->height) * 0.5), m_image->width,
            m_image->height};
}

TLCellRect TLImageTextCell::titleRectForBounds(const TLCellRect &frame) const
{
    if (!m_image)
        return {};
    // Single precision on purpose: the offset is a float in the cell's design.
    const double offset = static_cast<float>(m_image->width + imageMargin);
    return {frame.x + offset, frame.y - offset, frame.width, frame.height};
}

TLCellRect TLImageTextCell::editWithFrame(const TLCellRect &frame) const
{
    const double slice = std::min(std::max(frame.width, 0.0), (m_image ? m_image->width : 0.0) + imageSlice);
    return {frame.x + slice, frame.y, std::max(frame.width, 0.0) - slice, frame.height};
}

TLImageTextCellDrawing TLImageTextCell::drawWithFrame(const TLCellRect &frame, bool flipped) const
{
    if (!m_image)
        return {std::nullopt, frame};
    const TLCellRect remainder = editWithFrame(frame);
    const double offset = flipped ? std::ceil((frame.height + m_image->height) * 0.5)
                                  : std::ceil((frame.height - m_image->height) * 0.5);
    const TLCellRect image{frame.x + imageMargin, frame.y + offset, m_image->width, m_image->height};
    return {image, remainder};
}

std::optional<TLImageTextCellSubtitle> TLImageTextCell::subtitleForFrame(const TLCellRect &frame,
                                                                         const TLCellSize &measured) const
{
    if (m_subtitle.empty())
        return std::nullopt;
    TLImageTextCellSubtitle subtitle{m_subtitle, frame.x + subtitleInset,
                                     frame.y + frame.height - measured.height - subtitleBottomGap};
    const double limit = frame.width - subtitleMargin;
    if (measured.width <= limit)
        return subtitle;
    const double averageWidth = measured.width / static_cast<double>(TLTextCoding::utf16Length(m_subtitle));
    // A negative limit (a frame narrower than the margin) keeps nothing but
    // the ellipsis, which still says that something was cut.
    std::size_t kept = 0;
    if (limit > 0.0 && averageWidth > 0.0)
        kept = static_cast<std::size_t>(std::floor(limit / averageWidth));
    subtitle.text = prefixOfUTF16Units(m_subtitle, kept) + std::string(ellipsis);
    return subtitle;
}

TLCellSize TLImageTextCell::cellSize(const TLCellSize &textSize) const
{
    const double extra = (m_image ? m_image->width : 0.0) + imageMargin;
    return {textSize.width + extra, textSize.height};
}
