#ifndef NORVA_PRIVATE_IDALLOCATION_H
#define NORVA_PRIVATE_IDALLOCATION_H

#include <string>
#include <vector>

// Identifier arithmetic, apart from any statement.

// The next identifier from the keys a table holds and its MAXID mark:
// sequential, one past the larger of the largest key and the mark; lowest
// free, the first number from 1 up that the sorted keys do not use (how
// keys of 0, repeats and negatives count: docs/kept-behaviours.md, S10).
struct NextId {
    enum class Result { Ok, Exhausted, NotPositive };
    Result result;
    int id;    // with Ok: the identifier
    int mark;  // the mark afterwards: raised to the identifier when passed
    long long below;  // with NotPositive: the number the next would follow
};
NextId ChooseNextId(std::vector<int> keys, int mark, bool lowestFree);

// The leading decimal number of a key text, read as a stream reads an int:
// blanks skipped, an optional sign, digits; none counts as 0, and a number
// out of range gives the nearest limit.
int LeadingNumber(const std::string& text);

#endif
