#include <gtest/gtest.h>
TEST(Build, Compiles) {}
