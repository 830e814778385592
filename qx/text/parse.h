// parse.h - how String::parse and UniString::parse read numbers.
//
// The overloads are members of the strings. All of them start `value` at 0, skip no white space
// and are true only if the whole string (by its length) is used up; when false, `value` holds what
// was read before the character that did not fit. Numbers wrap in the width of `value`.
//
//     int, long long             =>  an optional "-", then digits; "" and "-" are 0; no "+"
//     unsigned int, long long    =>  digits; "" is 0; "-5" is false
//     String float               =>  an optional "-", digits, a ".", digits; no exponent
//     UniString float            =>  the "." may lack, and "e" or "E", an optional "-" and digits
//                                    may follow; "" is 0
//
//     String("-12a")    int      =>  false, -12
//     String("-2.5")    float    =>  true        String("5")       float  =>  false, 5
//     UniString(L"5")   float    =>  true        UniString(L"1e-2")       =>  true, about 0.01
//
// With a radix, the value is multiplied before each character is looked at, "" is 0, and these
// are digits:
//
//     "0" to "9"                       =>  0 to 9, whatever the radix
//     "a" to below code radix + 87     =>  10 and up
//     "A" to below code radix + 80     =>  10 and up, 25 more of them than of small letters
//
//     String("FF")  16  =>  true, 255            String("1g") 16  =>  false, 16
//     String("G")   16  =>  true, 16             String("9")   2  =>  true, 9
//
// Nothing is allocated or thrown. Threads: no shared state.
#pragma once

#include "qx/text/string.h"
