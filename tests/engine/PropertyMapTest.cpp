#include <gtest/gtest.h>

#include "engine/InvalidArgumentException.h"
#include "engine/PropertyMap.h"

using namespace kelm;

TEST(EnginePropertyMap, ConversionsAndReaders) {
    PropertyMap p{{"A", "0.0|0.5"}, {"One", "2.5"}, {"Flag", "True"}, {"Yes", "true"}, {"N", "42"}};
    ScalarVectorPtr v;
    ASSERT_TRUE(p.readOptional("A", v));
    ASSERT_EQ(2u, v->size());
    EXPECT_FLOAT_EQ(0.5f, (*v)[1]);
    ASSERT_TRUE(p.readOptional("One", v));
    EXPECT_EQ(1u, v->size());

    bool flag = true;
    EXPECT_TRUE(p.readOptional("Flag", flag));
    EXPECT_FALSE(flag);  // only the exact text "true" is true
    p.readOptional("Yes", flag);
    EXPECT_TRUE(flag);

    int n = 7;
    EXPECT_FALSE(p.readOptional("Missing", n));
    EXPECT_EQ(7, n);  // defaults survive an absent property

    // A missing required property throws a plain KELMException with the reader's message.
    try {
        p.readRequired("Missing", n, InvalidArgumentException("my message"));
        FAIL();
    } catch (const InvalidArgumentException&) {
        FAIL() << "must not keep the class of the object passed";
    } catch (const KELMException& e) {
        EXPECT_EQ("my message", e.message());
    }
    p.readRequired("N", n, KELMException("x"));
    EXPECT_EQ(42, n);
}
