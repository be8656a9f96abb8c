"""Peer: the python3-webvtt package's segmenter. Usage: python_webvtt_segment.py IN OUT SECONDS"""
import sys

from webvtt import WebVTTSegmenter

WebVTTSegmenter().segment(sys.argv[1], sys.argv[2], int(sys.argv[3]), 900000)
