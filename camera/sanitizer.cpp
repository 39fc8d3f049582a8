// What the thread sanitizer is told about libraries that were built without it: it sees their memory calls but not the
// atomics by which their threads hand memory over, and takes that for races. Our own code stays watched.
#ifdef __SANITIZE_THREAD__
extern "C" const char *__tsan_default_suppressions(void);

extern "C" const char *__tsan_default_suppressions(void)
{
    return "race:libavcodec.so\n"
           "race:libavformat.so\n"
           "race:libavutil.so\n"
           "race:libswscale.so\n"
           "race:libx264.so\n";
}
#endif
