#include "language/uri.h"

#include <cctype>
#include <cstdint>

std::string uri_reference(std::string_view name) {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string uri = name.starts_with('/') ? "file://" : "";
    for (const char c : name) {
        const auto byte = static_cast<uint8_t>(c);
        const bool plain = (byte < 0x80 && std::isalnum(byte) != 0) ||
                           std::string_view("/-._~").find(c) != std::string_view::npos;
        if (plain) {
            uri += c;
        } else {
            uri += {'%', DIGITS[byte / 16], DIGITS[byte % 16]};
        }
    }
    return uri;
}
