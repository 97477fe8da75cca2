// The simulated host's resource table: its file format, its errors and its text conversion.
#include <gtest/gtest.h>

#include <string>

#include "tools/host/ResourceTable.h"

using namespace brivane::tools;

namespace {

const std::string kBadDir = std::string(BRIVANE_TEST_DATA_DIR) + "/host/bad/";

TEST(simhost_test, bad_resource_files_are_refused_with_their_line) {
    struct Case {
        const char* file;
        const char* reason;
    };
    const Case cases[] = {
        {"resources_without_equals.txt", ":2: expected 'id = text'"},
        {"resources_with_a_bad_id.txt", ":2: resource id 'abc' is not a whole number"},
        {"resources_with_a_repeated_id.txt", ":2: resource id 101 is given twice"},
        {"resources_without_an_id.txt", ":1: resource id '' is not a whole number"},
        {"resources_with_trailing_junk.txt", ":1: resource id '12x' is not a whole number"},
        {"no_such_file.txt", "cannot open resource file"},
    };
    for (const Case& c : cases) {
        ResourceTable table;
        table.Set(7, u"kept");
        std::string error;
        EXPECT_FALSE(table.Load(kBadDir + c.file, error)) << c.file;
        EXPECT_NE(error.find(c.reason), std::string::npos) << error;
        EXPECT_NE(error.find(c.file), std::string::npos) << error;
        EXPECT_EQ(table.Size(), 1u) << "a failed load adds nothing: " << c.file;
    }
}

}  // namespace
