# Fails unless README contains EXAMPLE whole, as a block of C++.
file(READ "${README}" readme)
file(READ "${EXAMPLE}" example)
string(FIND "${readme}" "```cpp\n${example}```\n" at)
if(at EQUAL -1)
    message(FATAL_ERROR "${README} does not hold the text of ${EXAMPLE}")
endif()
