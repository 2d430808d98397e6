# Run as a script: fails if this CMake is too old for the project.
cmake_minimum_required(VERSION 3.25)
