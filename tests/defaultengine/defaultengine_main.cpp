// Test main of the default-engine tests: no application object and no engine
// installed, as a host that only links the module starts. Each scenario runs
// in a process of its own (gtest re-executes the program for it), since the
// engine choice is made once per process.
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    return RUN_ALL_TESTS();
}
