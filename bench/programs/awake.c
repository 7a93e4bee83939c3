/*
 * Keeps one processor from going to sleep:  awake NUMBER
 *
 * Runs only while nothing else wants the processor, and ends with its parent. What it takes
 * to wake a sleeping processor, on a virtual machine many times what a key costs, would
 * otherwise be counted with whatever is measured.
 */
#define _GNU_SOURCE
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>

int
main(int argc, char **argv)
{
	struct sched_param none = { 0 };
	cpu_set_t one;
	volatile unsigned long turns = 0;

	CPU_ZERO(&one);
	CPU_SET(argc == 2 ? atoi(argv[1]) : 0, &one);
	if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || sched_setaffinity(0, sizeof one, &one) != 0
	    || sched_setscheduler(0, SCHED_IDLE, &none) != 0) {
		perror("awake");
		return 1;
	}
	for (;;)
		turns++;
}
