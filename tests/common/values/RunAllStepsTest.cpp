#include "common/RunAllSteps.h"

#include "common/CurrentExceptionText.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

namespace kqlib::test {
namespace {

TEST(RunAllSteps, Steps_NoneThrows_RunInOrder)
{
    std::string ran;
    RunAllSteps([&] { ran += '1'; }, [&] { ran += '2'; }, [&] { ran += '3'; });
    EXPECT_EQ(ran, "123");
}

TEST(RunAllSteps, Steps_SeveralThrow_AllRunAndTheFirstExceptionGoesOn)
{
    std::string ran;
    const auto run = [&] {
        RunAllSteps([&] { ran += '1'; },
                    [&] {
                        ran += '2';
                        throw std::runtime_error("second");
                    },
                    [&] {
                        ran += '3';
                        throw 3;
                    },
                    [&] { ran += '4'; });
    };
    EXPECT_THROW(run(), std::runtime_error);
    EXPECT_EQ(ran, "1234");
}

TEST(RunAllSteps, Steps_LastThrows_GoesOn)
{
    EXPECT_THROW(RunAllSteps([] {}, [] { throw std::bad_alloc(); }), std::bad_alloc);
}

struct SilentException : std::exception
{
    const char* what() const noexcept override { return nullptr; }
};

template <class EXCEPTION> String TextOf(const EXCEPTION& exception)
{
    try {
        throw exception;
    } catch (...) {
        return CurrentExceptionText();
    }
}

TEST(CurrentExceptionText, AnyKind_HasAText)
{
    EXPECT_EQ(TextOf(std::runtime_error("the index is gone")), "the index is gone");
    EXPECT_EQ(TextOf(std::bad_alloc()), std::bad_alloc().what());
    EXPECT_EQ(TextOf(std::runtime_error("")), "Exception without a text");
    EXPECT_EQ(TextOf(SilentException()), "Exception without a text");
    EXPECT_EQ(TextOf(42), "Exception of an unknown kind");
    EXPECT_EQ(TextOf("a text, but no exception class"), "Exception of an unknown kind");
}

} // namespace
} // namespace kqlib::test
