// The service's own X client on one session's display: pixels and their formats. Transports that show a display through
// this client need them; the service itself looks at no pixel.
#include "exceptions.h"
#include "logger.h"
#include "xcb_connector.h"

#include <algorithm>
#include <cstring>

namespace Vard::Xcb {

const xcb_visualtype_t* Connector::findVisual(xcb_visualid_t id) const {
    for (auto depths = ::xcb_screen_allowed_depths_iterator(screen_); depths.rem > 0; ::xcb_depth_next(&depths)) {
        for (auto it = ::xcb_depth_visuals_iterator(depths.data); it.rem > 0; ::xcb_visualtype_next(&it)) {
            if (it.data->visual_id == id) {
                return it.data;
            }
        }
    }
    return nullptr;
}

uint8_t Connector::bppFromDepth(uint8_t depth) const {
    const auto* format = findFormat(depth);
    return format != nullptr ? format->bits_per_pixel : uint8_t{0};
}

uint8_t Connector::depthFromBpp(uint8_t bpp) const {
    for (auto it = ::xcb_setup_pixmap_formats_iterator(setup_); it.rem > 0; ::xcb_format_next(&it)) {
        if (it.data->bits_per_pixel == bpp) {
            return it.data->depth;
        }
    }
    return 0;
}

void Connector::describe(PixmapInfo& info, const xcb_get_image_reply_t& reply) const {
    const auto* visual = findVisual(reply.visual);
    if (visual == nullptr) {
        Syslog::error("%s: %s failed, id: %d", "copyWindowPixmapTo", "visual", static_cast<int>(reply.visual));
        throw xcb_error("copyWindowPixmapTo");
    }
    info.depth = reply.depth;
    info.bitsPerPixel = bppFromDepth(reply.depth);
    info.redMask = visual->red_mask;
    info.greenMask = visual->green_mask;
    info.blueMask = visual->blue_mask;
}

PixmapInfo Connector::copyWindowPixmapTo(xcb_window_t win, const Rect& rect, uint8_t* buf, size_t size) {
    Syslog::debug("%s: winid: 0x%08x, region: [%d,%d,%d,%d]", "copyWindowPixmapTo", win, rect.x, rect.y, rect.width,
                  rect.height);
    PixmapInfo info;
    if (rect.width == 0 || rect.height == 0) {
        Syslog::error("%s: empty size", "copyWindowPixmapTo");
        return info;
    }
    if (buf == nullptr || size == 0) {
        Syslog::error("%s: empty buffer", "copyWindowPixmapTo");
        return info;
    }
    // The announced limit counts units of four bytes: dividing it by bytes leaves a margin. A hostile server may
    // announce less than one row, or pixels of no bits.
    const size_t rowBytes = std::max<size_t>(size_t{rect.width} * (bitsPerPixel() / 8U), 1);
    const size_t bandRows = std::clamp<size_t>(setup_->maximum_request_length / rowBytes, 1, rect.height);
    Syslog::debug("%s: max request: %d", "copyWindowPixmapTo", static_cast<int>(bandRows));
    for (size_t row = 0; row < rect.height; row += bandRows) {
        const auto rows = static_cast<uint16_t>(std::min<size_t>(bandRows, rect.height - row));
        const auto y = static_cast<int16_t>(rect.y + static_cast<int>(row));
        const auto [reply, error] = ask<xcb_get_image_reply_t>([&](xcb_connection_t* conn) {
            return ::xcb_get_image(conn, XCB_IMAGE_FORMAT_Z_PIXMAP, win, rect.x, y, rect.width, rows, ~0U);
        });
        if (!reply) {
            toSyslogError(error.get(), "copyWindowPixmapTo", "xcb_get_image");
            throw xcb_error("copyWindowPixmapTo");
        }
        if (row == 0) {
            describe(info, *reply);
        }
        const auto length = static_cast<size_t>(::xcb_get_image_data_length(reply.get()));
        if (info.bytes + length > size) {
            Syslog::error("%s: out of range, buf size: %d, data length: %d", "copyWindowPixmapTo",
                          static_cast<int>(size), static_cast<int>(length));
            throw xcb_error("copyWindowPixmapTo");
        }
        std::memcpy(buf + info.bytes, ::xcb_get_image_data(reply.get()), length);
        info.bytes += length;
    }
    return info;
}

} // namespace Vard::Xcb
