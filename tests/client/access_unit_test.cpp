// What an access unit is, by its NAL unit types: of both codecs, of either, of none, and of bytes
// that nobody meant as one.
#include "client_kit.h"

#include <random>

namespace
{

using namespace support;
using zu::Codec;

zu::AccessUnit look(const bytes& data, Codec before = Codec::unknown)
{
    return zu::look_at_access_unit(data.data(), data.size(), before);
}

void expect(const std::string& units, Codec codec, bool key, Codec before = Codec::unknown)
{
    const zu::AccessUnit unit = look(hex(units), before);
    EXPECT_EQ(unit.codec, codec) << units;
    EXPECT_EQ(unit.key, key) << units;
}

TEST(AccessUnit, OfH264IsAKeyFrameWithAnIdrSlice)
{
    expect("00 00 00 01 65 88 84", Codec::h264, true);
    expect("00 00 01 65 88 84", Codec::h264, true);
    expect("00 00 01 45 88 84", Codec::h264, true);
    expect("00 00 01 25 b8 20", Codec::h264, true);
    expect("00 00 01 41 9a 24", Codec::h264, false);
    expect("00 00 01 01 9e 44", Codec::h264, false);
}

TEST(AccessUnit, OfH264MayHaveOtherUnitsInFront)
{
    expect("00 00 00 01 09 10  00 00 00 01 67 42 00 1e  00 00 00 01 68 ce 3c 80  00 00 01 06 05 01 "
           "00 80  00 00 00 01 65 88",
           Codec::h264, true);
    expect("00 00 00 01 09 30  00 00 01 06 01 01 32 80  00 00 01 41 9a", Codec::h264, false);
    expect("00 00 01 06 05 01 00 80  00 00 01 65 88", Codec::h264, true);
}

TEST(AccessUnit, OfH265IsAKeyFrameWithAnIrapSlice)
{
    expect("00 00 00 01 26 01 af 08", Codec::h265, true);  // IDR_W_RADL
    expect("00 00 00 01 2a 01 af 08", Codec::h265, true);  // CRA
    expect("00 00 00 01 20 01 af 08", Codec::h265, true);  // BLA_W_LP
    expect("00 00 00 01 02 01 d0 09", Codec::h265, false); // TRAIL_R
    expect("00 00 00 01 00 02 d0 09", Codec::h265, false); // TRAIL_N
    expect("00 00 00 01 12 01 d0 09", Codec::h265, false); // RASL_R
}

TEST(AccessUnit, OfH265MayHaveOtherUnitsInFront)
{
    expect("00 00 00 01 46 01 50  00 00 00 01 40 01 0c 01  00 00 00 01 42 01 01 01  00 00 00 01 44 "
           "01 c1 72  00 00 01 4e 01 05 80  00 00 00 01 28 01 af",
           Codec::h265, true);
    expect("00 00 00 01 46 01 50  00 00 01 4e 01 05 80  00 00 00 01 02 01 d0", Codec::h265, false);
}

TEST(AccessUnit, OfParameterSetsIsOfACodecAndNoKeyFrame)
{
    expect("00 00 00 01 67 42 c0 1e  00 00 00 01 68 ce 3c 80", Codec::h264, false);
    expect("00 00 00 01 27 64 00 1e  00 00 00 01 28 ee 3c 80", Codec::h264, false);
    expect("00 00 00 01 40 01 0c 01  00 00 00 01 42 01 01 01", Codec::h265, false);
}

// 28 01 is an IDR_N_LP slice of H.265 and, as far as types go, a PPS of H.264.
TEST(AccessUnit, ThatFitsBothIsToldByTheOneBefore)
{
    expect("00 00 01 28 01 af 08", Codec::unknown, false);
    expect("00 00 01 28 01 af 08", Codec::h265, true, Codec::h265);
    expect("00 00 01 28 01 af 08", Codec::h264, false, Codec::h264);
    expect("00 00 01 06 05 01 80", Codec::h264, false, Codec::h264);
}

TEST(AccessUnit, TellsItsCodecAgainstTheOneBefore)
{
    expect("00 00 01 65 88 84", Codec::h264, true, Codec::h265);
    expect("00 00 01 26 01 af", Codec::h265, true, Codec::h264);
}

TEST(AccessUnit, IsNoneWithoutAStartCodeOrAUnitBehindIt)
{
    for (const char* const data :
         {"", "00", "00 00", "00 00 01", "00 00 00 01", "00 00 00 00 00", "65 88 84 00",
          "00 01 65 88", "00 00 02 65 88", "01 65", "00 00 01 00 00 01", "ff ff ff ff"}) {
        expect(data, Codec::unknown, false);
        expect(data, Codec::unknown, false, Codec::h264);
    }
    EXPECT_EQ(zu::look_at_access_unit(nullptr, 0).codec, Codec::unknown);
}

TEST(AccessUnit, IsNoneOfEitherWithTheForbiddenBitOrATypeNobodySends)
{
    expect("00 00 01 e5 88 84", Codec::unknown, false);
    expect("00 00 01 a6 01 af", Codec::unknown, false);
    expect("00 00 01 05 88 84", Codec::unknown, false); // an IDR slice that nothing refers to
    expect("00 00 01 26 00 af", Codec::unknown, false); // temporal id -1
    expect("00 00 01 7e 01 af", Codec::unknown, false); // type 63
    expect("00 00 01 02", Codec::unknown, false);       // half a header
}

TEST(AccessUnit, PassesOverEmptyUnitsAndZerosBetween)
{
    expect("00 00 00 00 00 01  00 00 01  00 00 00 00 01 65 88", Codec::h264, true);
}

// Bytes stand at the very end of what is allocated, so a sanitizer sees a step beyond.
TEST(AccessUnit, MayBeAnyBytes)
{
    std::mt19937 random(17);
    for (int round = 0; round < 20000; round++) {
        std::vector<unsigned char> data(random() % 24);
        for (unsigned char& byte : data) {
            byte = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 2);
        }
        data.shrink_to_fit();
        const zu::AccessUnit unit = look(data, static_cast<Codec>(random() % 3));
        EXPECT_FALSE(unit.key && unit.codec == Codec::unknown);
    }
}

} // namespace
