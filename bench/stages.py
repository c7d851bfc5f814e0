"""The codec's stages: the functions that do their work and the arithmetic they cannot avoid.

A sample belongs to the stage whose function stands outermost on its stack. "caller>helper" names a
shared helper below the given caller. Multiply-adds are counted a frame at 8 kbit/s, from the
sizes of the standard: 80 samples, two subframes of 40, LP order 10, 240 samples under the window.
An addition or a multiplication that stands alone counts as one.
"""
from dataclasses import dataclass


@dataclass
class Stage:
    name: str
    functions: tuple
    multiply_adds: int = 0
    why: str = ""
    inside: bool = False  # counts although its caller is another stage


TRIANGLE = 40 * 41 // 2  # products of a convolution of 40 samples from rest


def encoder_stages(triples):
    """`triples`: position triples of the codebook search that get a fourth pulse, a subframe."""
    search = 512 + triples * 16 * 7
    return [
        Stage("pre-processing", ("preprocess_highpass", "encode_frame>biquad_filter"), 80 * 5, "80 samples, 5 coefficients"),
        Stage("LP analysis", ("autocorrelation", "apply_lag_window", "levinson_durbin_10"),
              240 + sum(240 - k for k in range(11)) + 110,
              "window 240, lags 0 to 10, recursion of order 10"),
        Stage("LP to LSP", ("lpc_to_lsp",), (61 + 10 * 4) * 5 + 20,
              "61 grid points and 10 roots of 4 bisections, 5 terms each"),
        Stage("LSF quantization", ("lsp_quantize", "lsp_spread", "lsp_reconstruct"), 2 * (128 * 10 + 2 * 32 * 5 + 4 * 10) + 60,
              "2 predictors: 128 rows of 10, 2 times 32 rows of 5, prediction of order 4"),
        Stage("interpolation", ("interpolate_lpc", "interpolate_quantized_lpc", "interpolate_lsp",
                                "lsp_to_lpc", "lsp_to_lpc_pair", "lsp_to_lsf"), 4 * 50 + 40, "4 LP vectors from LSPs"),
        Stage("weighting factors", ("perceptual_weighting_factors",), 40, "2 subframes"),
        Stage("weighted speech", ("weight_speech", "expand_bandwidth"),
              80 * 20, "80 samples, a zero and a pole filter of order 10"),
        Stage("open-loop pitch", ("open_loop_pitch",), 124 * 80 + 3 * 80,
              "124 lags of 80 samples, 3 energies"),
        Stage("target, impulse response",
              ("find_target", "find_target_10", "find_target_plain", "code_subframe>residual_filter",
               "code_subframe>residual_10"),
              2 * (40 * 40 + 40 * 20), "2 times: 40 samples through 4 filters, the response through 2"),
        Stage("closed-loop pitch", ("closed_loop_pitch", "encode_lag"),
              2 * TRIANGLE + (15 + 18) * 120, "2 convolutions; 15 and 18 lags: move, correlate, energy of 40"),
        Stage("adaptive codebook", ("pitch_excitation_interpolate", "convolve", "pitch_gain",
                                    "taming_test"),
              2 * (40 * 20 + TRIANGLE + 3 * 40), "2 times: 40 samples of 20 taps, convolution, gain, new target"),
        Stage("fixed codebook", ("acelp_search_17bit", "code_subframe>impulse_energies",
                                 "code_subframe>split_signs"), 2 * (2 * TRIANGLE + search + 160),
              f"2 times: backward filter, correlation matrix, 512 triples, {triples:.0f} of them with 16 fourth pulses of 7"),
        Stage("gains", ("gain_correlations", "gain_quantize", "sharpening_gain"),
              2 * (4 * 40 + 32 * 8), "2 times: 4 sums of 40, 32 pairs"),
        Stage("local synthesis, memories", ("total_excitation", "taming_update",
                                            "phase_dispersion_update",
                                            "code_subframe>synthesis_filter"),
              2 * (80 + 400 + 60), "2 times: excitation 80, synthesis 400, error memories 60"),
        Stage("silence compression", ("vad_decide", "music_detect", "dtx_update", "dtx_encode_frame",
                                      "synthesize_noise_subframe")),
        Stage("bit stream", ("parameters_to_bytes", "encode_serial_frame>parameters_to_serial")),
        Stage("rest of the subframes", ("code_subframe",)),
        Stage("rest of the frame", ("encoder_process_frame", "encode_serial_frame")),
    ]


def decoder_stages(_):
    return [
        Stage("bit stream", ("bytes_to_parameters", "pitch_parity_check", "serial_to_parameters",
                             "{lambda>serial_to_parameters")),
        Stage("LSP decoding", ("lsp_decode", "lsp_reconstruct"), 4 * 10 + 10, "prediction of order 4"),
        Stage("interpolation", ("interpolate_quantized_lpc", "lsp_to_lpc", "lsp_to_lpc_pair"), 2 * 50, "2 LP vectors"),
        Stage("adaptive codebook", ("pitch_excitation_interpolate", "pitch_lag_decode"), 80 * 20, "80 samples of 20 taps"),
        Stage("fixed codebook", ("fixed_code_decode_8k", "pitch_sharpen"), 80, "sharpening"),
        Stage("gains", ("gain_decode", "sharpening_gain", "gain_predict"), 2 * 50, "2 energies of 40"),
        Stage("excitation", ("total_excitation", "phase_dispersion_update"), 80 * 2, "80 samples, 2 gains"),
        Stage("rest of rendering: recursions side by side", ("render_side_by_side",),
              80 * 20 + 2 * 20 * 10 + 40 * 5,
              "80 samples of synthesis and of formant filter, order 10; responses of 20; half of the high-pass"),
        Stage("comfort noise", ("comfort_noise_decode",)),
        Stage("long-term post-filter", ("long_term_postfilter",),
              2 * (40 + 8 * 40 + 5 * 40 + 100 + 40 * 16 + 80 + 40),
              "2 times: energy, 8 lags, covariance, 15 fractions, 40 samples of 16 taps, their gain",
              inside=True),
        Stage("short-term post-filter", ("postfilter_weigh", "postfilter_flatten",
                                          "postfilter_finish"),
              2 * (400 + 2 * 20 + 40 + 40 + 3 * 40),
              "2 times: residual of order 10, tilt, gain control"),
        Stage("post-processing", ("postprocess_highpass", "wrap_to_samples", "render_side_by_side>biquad_filter"), 40 * 5 + 80,
              "40 samples, 5 coefficients; rounding"),
        Stage("rest of the frame", ("decode_frame", "decode_frame_core", "decode_packed_frame", "decode_serial_frame")),
    ]
