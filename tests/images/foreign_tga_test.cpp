#include "qx/images/tga.h"

#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using namespace QX;

// Run by scripts/check_tga_foreign.sh, which has put files by another maker, each with its pixels
// beside it, into a folder.
TEST(ForeignTGA, DISABLED_reads_what_the_other_maker_wrote) {
    char const* const folder = std::getenv("QX_FOREIGN_TGA");
    ASSERT_TRUE(folder);
    int number = 0;
    for (std::string const name :
         {"plain_24", "packed_24", "plain_32", "packed_32", "plain_grey", "packed_grey",
          "plain_map", "packed_map"}) {
        std::string const path = std::string(folder) + "/" + name;
        FileIn file((path + ".tga").c_str(), false);
        TGAHeader header;
        header.read(file);
        ImageType<Pixel8888> image;
        image.resize(header.width, header.height);
        EXPECT_TRUE(read_pixels(image.pixel_accessor(), file, header)) << name;
        unsigned int const count = image.width() * image.height();
        // Grey is alpha too in this library, but not for others.
        for (unsigned int i = 0; header.format() == PIXEL_FORMAT_GREY8 && i < count; ++i)
            image.data()[i].alpha = 255;

        std::string const expected = test::read_file(path + ".raw");
        ASSERT_EQ(expected.size(), count * 4) << name;
        EXPECT_EQ(std::memcmp(expected.data(), image.data(), expected.size()), 0) << name;
        FileOut out((path + ".out.tga").c_str());
        tga_write(out, PIXEL_FORMAT_A8R8G8B8, image.pixel_accessor(), number % 2, number / 2 % 2);
        ++number;
    }
}
