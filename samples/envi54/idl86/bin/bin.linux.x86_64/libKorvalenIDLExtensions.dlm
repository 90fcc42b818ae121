MODULE libKorvalenIDLExtensions
DESCRIPTION Korvalen routines in C, release 5.2
