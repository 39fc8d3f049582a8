// Person and motion detection: one thread that turns frames of the motion queue into events and boxes.
#ifndef MID_HCHD_H
#define MID_HCHD_H

int mid_hchd_init(int ignored);
int mid_hchd_fini(void);
int mid_hchd_sensitivity_set(int level);
int mid_hchd_people_sensitivity_set(int level);
int set_mid_people_region(int x1, int x2, int y1, int y2);

#endif
