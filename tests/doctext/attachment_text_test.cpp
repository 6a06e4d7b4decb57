#include <gtest/gtest.h>
TEST(A,b){}
