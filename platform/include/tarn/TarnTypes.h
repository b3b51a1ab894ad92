#pragma once
// The product's shared record types, reduced to the fields this library serialises.
#include <string>
#include <cstdint>

namespace TarnTypes {

struct Source {
    std::uint32_t id = 0;
    std::string type;
};

} // namespace TarnTypes

struct AV_Class {
    std::int32_t reserved = 0;   // leading field of the product's record; not serialised here
    std::uint32_t bindingId = 0;
    std::string className;
};
