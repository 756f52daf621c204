// The service's own X client on one session's display: atoms, properties, window lists, screen sizes.
#include "logger.h"
#include "xcb_connector.h"

#include <algorithm>
#include <iterator>

namespace Vard::Xcb {

namespace {

constexpr uint32_t propertyUnits = 1024; // of four bytes: as much of a property as is read

/// The property's bytes, no more than the reply really holds: its counts come from the user's server.
std::string_view valueOf(const xcb_get_property_reply_t& reply) {
    const uint64_t announced = uint64_t{reply.value_len} * (reply.format / 8U);
    const uint64_t held = uint64_t{reply.length} * 4;
    return {static_cast<const char*>(::xcb_get_property_value(&reply)), static_cast<size_t>(std::min(announced, held))};
}

std::vector<xcb_window_t> windowsOf(const xcb_get_property_reply_t& reply) {
    const auto bytes = valueOf(reply);
    std::vector<xcb_window_t> windows(bytes.size() / sizeof(xcb_window_t));
    bytes.copy(reinterpret_cast<char*>(windows.data()), windows.size() * sizeof(xcb_window_t));
    return windows;
}

} // namespace

xcb_atom_t Connector::getAtom(std::string_view name, bool onlyIfExists) {
    const auto [reply, error] = ask<xcb_intern_atom_reply_t>([&](xcb_connection_t* conn) {
        return ::xcb_intern_atom(conn, onlyIfExists ? 1 : 0, static_cast<uint16_t>(name.size()), name.data());
    });
    if (!reply) {
        toSyslogError(error.get(), "getAtom", "xcb_intern_atom");
        return XCB_ATOM_NONE;
    }
    return reply->atom;
}

ReplyPtr<xcb_get_property_reply_t> Connector::getPropertyAnyType(xcb_window_t win, xcb_atom_t prop, xcb_atom_t type,
                                                                 uint32_t length) {
    auto [reply, error] = ask<xcb_get_property_reply_t>(
        [&](xcb_connection_t* conn) { return ::xcb_get_property(conn, 0, win, prop, type, 0, length); });
    if (!reply) {
        toSyslogError(error.get(), "getPropertyAnyType", "xcb_get_property");
    }
    return std::move(reply);
}

xcb_atom_t Connector::getPropertyType(xcb_window_t win, xcb_atom_t prop) {
    const auto reply = getPropertyAnyType(win, prop, XCB_GET_PROPERTY_TYPE_ANY, 0);
    return reply ? reply->type : xcb_atom_t{XCB_ATOM_NONE};
}

xcb_window_t Connector::getPropertyWindow(xcb_window_t win, xcb_atom_t prop) {
    const auto reply = getPropertyAnyType(win, prop, XCB_ATOM_WINDOW, 1);
    const auto windows = reply ? windowsOf(*reply) : std::vector<xcb_window_t>{};
    return windows.empty() ? xcb_window_t{XCB_WINDOW_NONE} : windows.front();
}

std::string Connector::getPropertyString(xcb_window_t win, xcb_atom_t prop) {
    const auto reply = getPropertyAnyType(win, prop, XCB_GET_PROPERTY_TYPE_ANY, propertyUnits);
    return reply ? std::string(valueOf(*reply)) : std::string();
}

std::vector<std::string> Connector::getPropertyStringList(xcb_window_t win, xcb_atom_t prop) {
    const std::string text = getPropertyString(win, prop);
    std::vector<std::string> list;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\0', start), text.size());
        list.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return list;
}

std::string Connector::getWindowName(xcb_window_t win) {
    const xcb_atom_t name = getAtom("_NET_WM_NAME", true);
    const xcb_atom_t type = getAtom("UTF8_STRING", true);
    if (name == XCB_ATOM_NONE || type == XCB_ATOM_NONE) {
        return "";
    }
    const auto reply = getPropertyAnyType(win, name, type, propertyUnits);
    return reply && reply->type == type ? std::string(valueOf(*reply)) : std::string();
}

std::vector<xcb_window_t> Connector::getWindows() {
    const xcb_atom_t list = getAtom("_NET_CLIENT_LIST", true);
    if (list != XCB_ATOM_NONE && getPropertyType(windowRoot(), list) == XCB_ATOM_WINDOW) {
        const auto reply = getPropertyAnyType(windowRoot(), list, XCB_ATOM_WINDOW, propertyUnits);
        return reply ? windowsOf(*reply) : std::vector<xcb_window_t>{};
    }
    const auto [tree, error] =
        ask<xcb_query_tree_reply_t>([&](xcb_connection_t* conn) { return ::xcb_query_tree(conn, windowRoot()); });
    if (!tree) {
        toSyslogError(error.get(), "getWindows", "xcb_query_tree");
        return {};
    }
    const auto* first = ::xcb_query_tree_children(tree.get());
    return {first, first + std::min<size_t>(tree->children_len, tree->length)};
}

std::vector<ScreenSize> Connector::getScreenSizes() {
    if (!hasRandr_) {
        Syslog::error("%s: %s extension not found", "getScreenSizes", "RANDR");
        return {};
    }
    const auto [reply, error] = ask<xcb_randr_get_screen_info_reply_t>(
        [&](xcb_connection_t* conn) { return ::xcb_randr_get_screen_info(conn, windowRoot()); });
    if (!reply) {
        toSyslogError(error.get(), "getScreenSizes", "xcb_randr_get_screen_info");
        return {};
    }
    const size_t held = size_t{reply->length} * 4 / sizeof(xcb_randr_screen_size_t);
    const auto* first = ::xcb_randr_get_screen_info_sizes(reply.get());
    std::vector<ScreenSize> sizes;
    std::transform(first, first + std::min<size_t>(reply->nSizes, held), std::back_inserter(sizes),
                   [](const auto& size) {
                       return ScreenSize{size.width, size.height, size.mwidth, size.mheight};
                   });
    return sizes;
}

} // namespace Vard::Xcb
