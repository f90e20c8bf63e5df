// Included before each of the module's sources in unit-test builds: redirects the calls to Windows, and those
// to FFmpeg that a test can make fail, to the fakes. The system headers come first so that the macros do not
// rename their declarations.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <audioclient.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>
#include <stdlib.h>
#include <cstdlib>

#include "support/deadline.h"
#include "tests/fakes/failing_calloc.h"
#include "tests/fakes/fake_deadline.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"

#define CreateEventW fakewin::CreateEventW
#define SetEvent fakewin::SetEvent
#define ResetEvent fakewin::ResetEvent
#define WaitForSingleObject fakewin::WaitForSingleObject
#define CloseHandle fakewin::CloseHandle
#define Sleep fakewin::Sleep
#define CreateThread fakewin::CreateThread
#define GetLastError fakewin::GetLastError
#define SetLastError fakewin::SetLastError
#define GetTickCount64 fakewin::GetTickCount64

#define CoInitializeEx fakewin::CoInitializeEx
#define CoUninitialize fakewin::CoUninitialize
#define CoCreateInstance fakewin::CoCreateInstance
#define CoTaskMemAlloc fakewin::CoTaskMemAlloc
#define CoTaskMemFree fakewin::CoTaskMemFree

#define GetModuleHandleExW fakewin::GetModuleHandleExW
#define FreeLibrary fakewin::FreeLibrary
#define FreeLibraryAndExitThread fakewin::FreeLibraryAndExitThread

#define RegOpenKeyExW fakewin::RegOpenKeyExW
#define RegCreateKeyExW fakewin::RegCreateKeyExW
#define RegQueryValueExW fakewin::RegQueryValueExW
#define RegSetValueExW fakewin::RegSetValueExW
#define RegCloseKey fakewin::RegCloseKey

#define calloc fakes::Calloc

#define DeadlineAfter fakes::DeadlineAfter

#define avformat_alloc_context fakeffmpeg::avformat_alloc_context
#define avcodec_find_decoder fakeffmpeg::avcodec_find_decoder
#define avcodec_find_encoder fakeffmpeg::avcodec_find_encoder
#define avcodec_alloc_context3 fakeffmpeg::avcodec_alloc_context3
#define avcodec_open2 fakeffmpeg::avcodec_open2
#define av_frame_alloc fakeffmpeg::av_frame_alloc
#define av_frame_make_writable fakeffmpeg::av_frame_make_writable
#define av_packet_alloc fakeffmpeg::av_packet_alloc
#define avcodec_send_frame fakeffmpeg::avcodec_send_frame
#define avcodec_receive_packet fakeffmpeg::avcodec_receive_packet
#define swr_alloc fakeffmpeg::swr_alloc
#define swr_init fakeffmpeg::swr_init
#define swr_convert fakeffmpeg::swr_convert
#define swr_alloc_set_opts2 fakeffmpeg::swr_alloc_set_opts2
#define av_samples_alloc_array_and_samples fakeffmpeg::av_samples_alloc_array_and_samples
#define av_samples_alloc fakeffmpeg::av_samples_alloc
#define av_samples_get_buffer_size fakeffmpeg::av_samples_get_buffer_size
