# A stand-in for the build system's package.mk. `make install` puts the files of each package below $(OUT)/PACKAGE and
# what its definition says into files beside that: PACKAGE.depends, .conffiles, .postinst, .postrm.
PKG_BUILD_DIR:=$(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)

.PHONY: install prepare configure

define BuildPackage
$(eval SECTION:=)$(eval CATEGORY:=)$(eval TITLE:=)$(eval DEPENDS:=)$(eval $(Package/$(1)))
$(foreach field,SECTION CATEGORY TITLE DEPENDS PKG_VERSION PKG_RELEASE PKG_MAINTAINER PKG_BUILD_FLAGS,\
	$(if $($(field)),,$(error $(1) has no $(field))))
$(foreach text,description install,$(if $(Package/$(1)/$(text)),,$(error $(1) has no $(text))))
$(file >$(OUT)/$(1).depends,$(DEPENDS))
$(foreach text,conffiles postinst postrm,\
	$(if $(Package/$(1)/$(text)),$(file >$(OUT)/$(1).$(text),$(Package/$(1)/$(text)))))

install: install-$(1)
install-$(1):
	mkdir -p $(OUT)/$(1)
$(call Package/$(1)/install,$(OUT)/$(1))
endef
