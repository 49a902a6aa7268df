#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

TEST(FileExtension, LastDotLoweredOrNothing) {
    struct Row {
        const char* name;
        const char* ext;
    } rows[] = {{"MODEL.APT", "apt"}, {"Wing.DAT", "dat"}, {"model.apt.bak", "bak"}, {"wing.", ""},
                {"wing", ""},         {".wrl", "wrl"},     {"a.b/c", "b/c"},         {"", ""}};
    for (const Row& r : rows) EXPECT_EQ(file_extension(r.name), r.ext) << r.name;
}

class Dispatch : public HostTest {};

TEST_F(Dispatch, UnknownExtensionsDoNothingSilently) {
    testutil::writeFile(dir.file("m.apt.bak"), "1 1\n1 2 3\n");
    region reg;
    region_fe fe;
    EXPECT_FALSE(import_data(dir.file("m.apt.bak"), false, reg, fe));
    EXPECT_EQ(reg.patchCount(), 0);
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(export_data(dir.file("out.txt"), 6, false, false, reg, fe));
    EXPECT_FALSE(export_data(dir.file("out"), 6, true, false, reg, fe));
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.txt")));
}

TEST_F(Dispatch, UpperCaseExtensionAndTransposeOfEveryPatch) {
    testutil::writeFile(dir.file("MODEL.APT"), "5 3\n" + [] {
        std::string s;
        for (int n = 0; n < 15; ++n) s += std::to_string(n) + " 0 0\n";
        return s;
    }());
    region reg;
    region_fe fe;
    reg.append(testutil::gridPatch(2, 4));  // there before the call: transposed too
    ASSERT_TRUE(import_data(dir.file("MODEL.APT"), true, reg, fe));
    ASSERT_EQ(reg.patchCount(), 2);
    EXPECT_EQ(reg.patch(0).I, 4);
    EXPECT_EQ(reg.patch(0).J, 2);
    const StructPatch& p = reg.patch(1);
    EXPECT_EQ(p.I, 5);
    EXPECT_EQ(p.J, 3);
    // point (j, i) of the new patch holds the file's point (i, j)
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 5; ++j) EXPECT_EQ(p.variable(0).values[static_cast<std::size_t>(j + 5 * i)], i + 3 * j);
}

TEST_F(Dispatch, SplitWritesOneNumberedFilePerItem) {
    region reg;
    region_fe fe;
    reg.append(testutil::gridPatch(2, 2));
    reg.append(testutil::gridPatch(3, 2));
    auto f = std::make_shared<FacePatch>(3, 4, 1);
    f->faceIndex = {0, 1, 2, -1};
    f->addVariable("x");
    f->addVariable("y");
    f->addVariable("z");
    fe.append(f);
    ASSERT_TRUE(export_data(dir.file("m.apt"), 6, true, false, reg, fe));
    for (const char* name : {"m_1.apt", "m_2.apt", "m_3.apt"}) EXPECT_TRUE(std::filesystem::exists(dir.file(name)));
    EXPECT_EQ(testutil::readFile(dir.file("m_2.apt")).substr(0, 4), "2 3\n");
    EXPECT_EQ(testutil::readFile(dir.file("m_3.apt")).substr(0, 4), "2 2\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("m_4.apt")));

    // Empty objects: no pass with split, a refused pass without.
    region none;
    region_fe nofe;
    EXPECT_TRUE(export_data(dir.file("e.apt"), 6, true, false, none, nofe));
    EXPECT_FALSE(std::filesystem::exists(dir.file("e_1.apt")));
    EXPECT_FALSE(export_data(dir.file("e.apt"), 6, false, false, none, nofe));
    EXPECT_EQ(messages(), std::vector<std::string>{"Dummy error"});
}

TEST_F(Dispatch, ResultIsTheLastPass) {
    region reg;
    region_fe fe;
    auto bad = std::make_shared<StructPatch>(1, 1, 1);  // no coordinates: every pass fails
    reg.append(bad);
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(export_data(dir.file("m.apt"), 6, true, false, reg, fe));
    EXPECT_EQ(messages().size(), 2u);
}
