// The layout of an outline row that shows a small image beside its name.
#pragma once

#include <optional>
#include <string>
#include <utility>

// A rectangle in the coordinates of the view that draws the cell.
struct TLCellRect
{
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    bool operator==(const TLCellRect &) const = default;
};

struct TLCellSize
{
    double width = 0.0;
    double height = 0.0;

    bool operator==(const TLCellSize &) const = default;
};

// A colour with components from 0 to 1.
struct TLCellColor
{
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
    double alpha = 1.0;

    bool operator==(const TLCellColor &) const = default;
};

// What drawing one cell involves: where the image goes, the frame left for
// the title, and the subtitle's text and position when there is one.
struct TLImageTextCellDrawing
{
    // The image's rectangle; nullopt without an image. Its origin is the
    // point the image is composited at: the bottom-left corner in a flipped
    // view (y grows downwards), the top-left one otherwise.
    std::optional<TLCellRect> imageRect;
    // The frame the title is drawn in: the cell frame less the image slice.
    TLCellRect titleFrame;
};

// The subtitle as drawn: its text, possibly shortened with "...", and the
// point of its top-left corner (y growing downwards).
struct TLImageTextCellSubtitle
{
    std::string text;
    double x = 0.0;
    double y = 0.0;

    bool operator==(const TLImageTextCellSubtitle &) const = default;
};

// The geometry of the outline's icon-and-text cell, free of any toolkit: the
// front end measures text and draws, this class says where. The numbers are
// the cell's design and some look odd on purpose: the image rectangle's y is
// not offset by the frame, the title rectangle moves up by the image slice
// instead of narrowing, and layout uses a 3.0 margin where drawing and
// editing use 7.0. Callers rely on them as they are.
//
// The image is known by its size only. The subtitle is optional and nothing
// in the application sets one; the drawing of it is part of the cell all the
// same.
class TLImageTextCell
{
public:
    // The margin between the cell's left edge and the image.
    static constexpr double imageMargin = 3.0;
    // The width of the slice cut off the left edge for drawing and editing,
    // on top of the image's width.
    static constexpr double imageSlice = 7.0;
    // Room kept free to the right of a subtitle.
    static constexpr double subtitleMargin = 50.0;

    // No image, an empty subtitle, gray subtitle colour.
    TLImageTextCell() = default;

    // The size of the image; nullopt for none.
    std::optional<TLCellSize> image() const { return m_image; }
    void setImage(std::optional<TLCellSize> image) { m_image = image; }

    // The subtitle; empty for none.
    const std::string &subtitle() const { return m_subtitle; }
    void setSubtitle(std::string subtitle) { m_subtitle = std::move(subtitle); }

    // The subtitle's colour; gray (0.5) until set.
    TLCellColor subtitleColor() const { return m_subtitleColor; }
    void setSubtitleColor(TLCellColor color) { m_subtitleColor = color; }

    // The image's rectangle: x = frame x + 3.0, y = ceil((frame height -
    // image height) / 2) measured from 0, not from the frame's y, and the
    // image's size. The zero rectangle without an image.
    TLCellRect imageRectForBounds(const TLCellRect &frame) const;

    // The frame moved right and up by the image's width + 3.0 (computed in
    // single precision), its size unchanged. The zero rectangle without an
    // image.
    TLCellRect titleRectForBounds(const TLCellRect &frame) const;

    // The frame an in-place editor gets: the cell frame less a slice of the
    // image's width + 7.0 at its left edge (7.0 without an image). A slice
    // wider than the frame leaves a zero-width frame at its right edge.
    TLCellRect editWithFrame(const TLCellRect &frame) const;
    // The same frame, for selecting text in the editor.
    TLCellRect selectWithFrame(const TLCellRect &frame) const { return editWithFrame(frame); }

    // Where drawing puts the image and the title in `frame`. In a flipped
    // view the image's y is moved down by ceil((height + image height) / 2),
    // otherwise by ceil((height - image height) / 2). Without an image the
    // title gets the whole frame.
    TLImageTextCellDrawing drawWithFrame(const TLCellRect &frame, bool flipped) const;

    // The subtitle drawn in the title frame `frame` (see drawWithFrame),
    // given its measured size: at (frame x + 2.0, frame bottom - measured
    // height - 1.0). When the measured width exceeds frame width - 50.0 the
    // text keeps as many characters as the average character width allows
    // (an estimate, so it may still be a little too wide or narrow) and ends
    // in "..."; a frame so narrow that no character fits gives "..." alone.
    // nullopt when the subtitle is empty.
    std::optional<TLImageTextCellSubtitle> subtitleForFrame(const TLCellRect &frame,
                                                            const TLCellSize &measured) const;

    // The cell's size from the size of its text: the width grows by the
    // image's width + 3.0 (by 3.0 without an image), the height stays.
    TLCellSize cellSize(const TLCellSize &textSize) const;

private:
    std::optional<TLCellSize> m_image;
    std::string m_subtitle;
    TLCellColor m_subtitleColor{0.5, 0.5, 0.5, 1.0};
};
