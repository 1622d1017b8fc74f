#pragma once
// Starts the window: QApplication, single instance, main window. Returns the exit status.
int runApplication(int argc, char **argv);
