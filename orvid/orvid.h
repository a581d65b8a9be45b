#pragma once

// Orvid: audio frames in; transcripts, cleaned and rewritten text, and confirmed
// automation out. This header brings in the whole public API.
//
// Basic usage: transcribe a WAV file with a service of the catalogue, then clean it.
//
//   #include "orvid/orvid.h"
//
//   orvid::CloudTranscriptionSetup service =
//       orvid::makeCloudTranscription({.providerID = "openai", .languageCodes = {"en"}});
//   orvid::TranscriptionRequest request;
//   request.audioFrames = orvid::AudioWAVDecoder::decode(wavBytes);
//   request.languageRoute = service.languageRoute;
//   orvid::TranscriptionResult result = service.provider->transcribe(request);
//   std::string text = orvid::TranscriptCleanupEngine().clean(result.text, orvid::OrvidSettings{});
//
// The API key is read from the credential store as "provider.openai.api-key".
// Every long operation blocks, takes an optional std::stop_token and throws
// orvid::CancellationError once it is stopped.

#include "orvid/ai/ai_model_discovery.h"
#include "orvid/ai/chat_completion_client.h"
#include "orvid/ai/http_chat_completion_client.h"
#include "orvid/ai/orvid_credential_store.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/ai/system_credential_store.h"
#include "orvid/audio/audio_speech_activity_detector.h"
#include "orvid/audio/audio_wav_decoder.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/audio/pcm16_resampler.h"
#include "orvid/automation/process_cua_driver_client.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/orvid_error.h"
#include "orvid/core/orvid_transcription_coordinator.h"
#include "orvid/core/transcription_records.h"
#include "orvid/pipeline/orvid_automation_pipeline.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/providers.h"
#include "orvid/textprocessing/prompt_post_processor.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_validation_client.h"
#include "orvid/transcription/language_context_realtime_transcription_provider.h"
#include "orvid/transcription/live_transcription_text_accumulator.h"
#include "orvid/transcription/local/models/file_download_session.h"
#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"
#include "orvid/transcription/local/models/hugging_face_mlx_model_downloader.h"
#include "orvid/transcription/local/models/mlx_model_download_support.h"
#include "orvid/transcription/local/models/model_scope_mlx_model_downloader.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"
#include "orvid/transcription/local/models/transcription_model_manager.h"
#include "orvid/transcription/local/speech_model_library.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_session.h"
#include "orvid/transcription/realtime/deepgram_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/deepgram_realtime_transcription_session.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_session.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_session.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_session.h"
#include "orvid/transcription/realtime_fallback_transcription_provider.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"
#include "orvid/transcription/realtime_transcription_capture.h"
#include "orvid/transcription/store_managed_realtime_transcription_session.h"
#include "orvid/transcription/transcription_provider_registry.h"
