// The "wdr" setting: wide dynamic range of the image signal processor, on or off.
//
// The processor holds the real state; the module keeps the mode last asked for. One lock (the WDR lock) makes
// the three calls one after the other; it is held across the processor's answer, so that the mode kept is the
// mode sent last. Results of the processor are logged by its calls and otherwise not looked at.
#ifndef WDR_H
#define WDR_H

enum naro_isp_wdr_mode {
    NARO_ISP_WDR_MODE_OFF = 1, // at the start
    NARO_ISP_WDR_MODE_ON = 2,
};

// Sends the kept mode to the processor; one that is neither on nor off (which wdr_mode_config keeps as it is)
// is logged as "Not support". 0. Any thread.
int wdr_init(void);
// Nothing is to be undone. 0.
int wdr_exit(void);
// Sends the mode and keeps it. Anything but the two is logged as "Not support", and the kept mode stays. 0.
// Any thread.
int wdr_mode_switch(int mode);
// Keeps any mode for wdr_init, sends nothing. 0. Any thread.
int wdr_mode_config(int mode);

#endif
