// The hash against values of the published algorithm.
#include "suppress/cityhash.h"

#include <gtest/gtest.h>

#include <string>

// Text N of the published list is the N bytes from place N * N on of a fixed sequence.
TEST(CityHash, GivesThePublishedValuesOfEveryLengthClass) {
    std::string bytes(1 << 20, '\0');
    for (uint64_t a = 9, b = 777, place = 0; char& byte : bytes) {
        a += b;
        b += a;
        a = (a ^ (a >> 41)) * 0xc3a5c85c97cb3127;
        b = (b ^ (b >> 41)) * 0xc3a5c85c97cb3127 + place++;
        byte = static_cast<char>(b >> 37);
    }
    constexpr std::pair<size_t, uint64_t> kPublished[] = {
        {0, 0x9ae16a3b2f90404f},   {1, 0x541150e87f415e96},   {3, 0xef923a7a1af78eab},  {4, 0x11df592596f41d88},
        {7, 0x1b5a063fb4c7f9f1},   {8, 0xa0f10149a0e538d6},   {16, 0x03ead5f21d344056}, {17, 0x6abbfde37ee03b5b},
        {32, 0x0782fa1b08b475e7},  {33, 0xc5dc19b876d37a80},  {64, 0xe88419922b87176f}, {65, 0x105191e0ec8f7f60},
        {128, 0xb2e23e8116c2ba9f}, {129, 0x8aa77f52d7868eb9},
    };
    for (const auto& [size, hash] : kPublished)
        EXPECT_EQ(zel::CityHash64({bytes.data() + size * size, size}), hash) << "size " << size;
    EXPECT_EQ(zel::CityHash64(bytes), 0x5fb5e48ac7b7fa4f);
}
