include $(sort $(wildcard $(BR2_EXTERNAL_LIBVNLIB_PATH)/package/*/*.mk))
