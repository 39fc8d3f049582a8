// The PWM channels of the board: 4 dims the infrared light, 6 is prepared and left off.
//
// This board's driver takes the duty in percent, whatever the period says. Failures are log_err lines, and
// nothing done before them is undone. Any thread; two that set different duties at once leave either.
#ifndef IRCUT_PWM_H
#define IRCUT_PWM_H

// Requests both channels (one that is there already is fine), sets their periods and disables them. 0, or -1
// at the first failure.
int _mstar_pwm_drv_init(void);
// Disables channel 4 and gives it back; channel 6 deliberately stays. 0 or -1.
int _mstar_pwm_drv_exit(void);
// Sets channel 4 to `text`, percent in decimal, and enables or disables it where 0 or not 0 asks for the
// other state than the one it is in. 0; -1 for a failure, and for a number outside 0 to 100, which changes
// nothing.
int _mstar_pwm_duty(const char *text);

#endif
