#include <gtest/gtest.h>
TEST(C,b){}
