#pragma once

namespace calder {

// The driver routine: 0 for success, 1 for failure.
int main(int argc, char** argv);

int RunUpdateSequence();
int RunVersionReport();
// "compound version:0.0.0.0.0.0.0.0" on standard output: no version known.
void PrintUnknownVersion();

}  // namespace calder
