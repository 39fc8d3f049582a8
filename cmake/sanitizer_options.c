// What the sanitizers are told in every program of a sanitized build. Their environment variables still have the
// last word.
//
// allocator_may_return_null: memory that is refused is null, as it is without them; the program must cope.
// use_sigaltstack: a cancelled thread leaves its frames without unmarking them, and the address sanitizer's own
// code for giving back the signal stack then trips over the marks. Without such a stack there is no such code.
const char *__asan_default_options(void);
const char *__tsan_default_options(void);

const char *__asan_default_options(void)
{
    return "allocator_may_return_null=1:use_sigaltstack=0";
}

const char *__tsan_default_options(void)
{
    return "allocator_may_return_null=1";
}
