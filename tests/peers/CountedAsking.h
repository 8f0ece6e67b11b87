// CountedAsking: takes the place of OpenSSL's own asking for a pass phrase, for tests.
#pragma once

#include <openssl/ui.h>

namespace kqlib::test {

/// While it lives nothing is asked on a terminal: each question is counted and answered with nothing. One at a time.
class CountedAsking
{
public:
    CountedAsking()
        : m_before(UI_get_default_method())
        , m_method(UI_create_method("counted"))
    {
        xsCount() = 0;
        UI_method_set_opener(m_method, [](UI*) {
            ++xsCount();
            return 0; // refuses to ask
        });
        UI_set_default_method(m_method);
    }
    ~CountedAsking()
    {
        UI_set_default_method(m_before);
        UI_destroy_method(m_method);
    }
    CountedAsking(const CountedAsking&) = delete;
    CountedAsking& operator=(const CountedAsking&) = delete;

    /// How often a pass phrase was to be asked for.
    static int sGetCount() { return xsCount(); }

private:
    static int& xsCount()
    {
        static int count;
        return count;
    }

    const UI_METHOD* const m_before;
    UI_METHOD* const m_method;
};

} // namespace kqlib::test
