// lexer.re - the tokeniser's tokens as a generated lexer cuts them, blanks, line ends and comments
// passed over. It neither terminates tokens nor converts numbers.
#pragma once

// The kind of the next token, 0 at the end of the terminated text.
__attribute__((noinline)) inline int generated_next(unsigned char const*& text) {
    unsigned char const* at = text;
    auto const found = [&](int kind) {
        text = at;
        return kind;
    };
    for (;;) {
        /*!re2c
        re2c:define:YYCTYPE = "unsigned char";
        re2c:define:YYCURSOR = at;
        re2c:yyfill:enable = 0;

        [\x00]                       { --at; return found(0); }
        [ \t\r\n]+                   { continue; }
        "//" [^\r\n\x00]*            { continue; }
        "/*" [^\x00]*                { continue; }
        ["] [^"\x00]* ["]?           { return found(1); }
        "0" [xX] [0-9a-fA-F]*        { return found(2); }
        [0-9]+                       { return found(3); }
        [0-9]+ "." [0-9]* [fF]?      { return found(4); }
        [a-zA-Z_] [a-zA-Z0-9_]*      { return found(5); }
        [!%*=/] "="?                 { return found(6); }
        "+" [+=]?                    { return found(6); }
        "-" [->=]?                   { return found(6); }
        "&" ("&" "="? | "=")?        { return found(6); }
        "|" ("|" "="? | "=")?        { return found(6); }
        "^" ("^" "="? | "=")?        { return found(6); }
        "<" ("<" "="? | "=")?        { return found(6); }
        ">" (">" "="? | "=")?        { return found(6); }
        [^]                          { return found(6); }
        */
    }
}
